#include "Host/AttributionFile.h"

#include <Kite/JSONValue.h>

#include "Common/CommandFailure.h"
#include "Common/ParseJSON.h"
#include "Common/ReadFile.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

DynamicValue toDynamic(const JSONValue& value);

DynamicValue toDynamic(const JSONValue::Object& members) {
  DynamicValue::Dictionary dictionary;
  for (const auto& [key, value] : members) dictionary.push_back({key, toDynamic(value)});
  return dictionary;
}

DynamicValue toDynamic(const JSONValue::Array& elements) {
  DynamicValue::Array array;
  for (const auto& element : elements) array.push_back(toDynamic(element));
  return array;
}

DynamicValue toDynamic(const JSONValue& value) {
  if (const auto* text = value.string()) return *text;
  if (const auto* number = value.integer()) return *number;
  if (const auto* number = value.real()) return *number;
  if (const auto* flag = value.boolean()) return *flag;
  if (const auto* members = value.object()) return toDynamic(*members);
  if (const auto* elements = value.array()) return toDynamic(*elements);
  return DynamicValue::NullObject{};
}

}  // namespace

AttributionClient::Details readAttributionFile(const std::filesystem::path& file) {
  const auto parsed = parseJSON(readFile(file));
  if (!parsed) throw CommandFailure(fmt::format("{}: {}", file.string(), parsed.error()));
  const auto* members = parsed->object();
  if (!members) throw CommandFailure(fmt::format("{}: must be a JSON object", file.string()));
  AttributionClient::Details details;
  for (const auto& [key, value] : *members) details.emplace(key, toDynamic(value));
  return details;
}

}  // namespace kite::tool
