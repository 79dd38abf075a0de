#include "Host/Runner.h"

#include "Common/ParseJSON.h"
#include "Common/WriteJSON.h"
#include "Host/Operations.h"
#include "Host/Reads.h"

#include <fmt/format.h>

#include <algorithm>

namespace kite::tool {
namespace {

template <class Entry>
const Entry* named(const std::vector<Entry>& table, std::string_view name) {
  const auto found = std::find_if(table.begin(), table.end(),
                                  [&](const Entry& entry) { return entry.name == name; });
  return found == table.end() ? nullptr : &*found;
}

JSONValue::Object parsed(const Line& line) {
  if (line.isTooLong)
    throw BadLine(fmt::format("a line may have at most {} bytes", maximumLineLength));
  const auto json = parseJSON(line.text);
  if (!json) throw BadLine(json.error());
  if (!json->object()) throw BadLine("a line must be a JSON object");
  return *json->object();
}

std::string operationName(const JSONValue::Object& members) {
  const auto* op = members.at("op");
  if (!op) throw BadLine("\"op\" is missing");
  if (!op->string()) throw BadLine("\"op\" must be a string");
  return *op->string();
}

std::string failure(std::string_view what) {
  return fmt::format(R"({{"ok":false,"error":{}}})", toJSON(what));
}

std::string success(const JSONValue& value) {
  return fmt::format(R"({{"ok":true,"value":{}}})", toJSON(value));
}

}  // namespace

Answer Runner::answer(const Line& line) {
  ++_lineNumber;
  try {
    return perform(line);
  } catch (const BadLine& bad) {
    return {failure(bad.what())};
  }
}

Answer Runner::perform(const Line& line) {
  const auto members = parsed(line);
  const auto name = operationName(members);
  const Place place{_source, _lineNumber};
  if (const auto* operation = named(operations(), name)) {
    operation->run(_host.kite(), Arguments(members, operation->members, place));
    return {R"({"ok":true})"};
  }
  if (const auto* read = named(reads(), name)) {
    const Arguments none(members, {}, place);
    return {success(read->run(_host.kite()))};
  }
  if (const auto* operation = named(hostOperations(), name)) {
    const auto made = operation->run(_host, Arguments(members, operation->members, place));
    return {made.value ? success(*made.value) : R"({"ok":true})", made.next};
  }
  throw BadLine(fmt::format("unknown op \"{}\"", name));
}

}  // namespace kite::tool
