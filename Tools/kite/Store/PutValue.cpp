#include "Store/PutValue.h"

#include "Common/CommandFailure.h"
#include "Common/ParseJSON.h"
#include "Common/ReadFile.h"

#include <Kite/Platform/LegacyArchive.h>
#include <fmt/format.h>

namespace kite::tool {
namespace {

JSONValue parsed(const std::filesystem::path& file, const std::string& bytes) {
  auto json = parseJSON(bytes);
  if (!json) throw CommandFailure(fmt::format("{}: {}", file.string(), json.error()));
  return *std::move(json);
}

double readNumber(const std::filesystem::path& file) {
  const auto json = parsed(file, readFile(file));
  if (const auto* integer = json.integer()) return static_cast<double>(*integer);
  if (const auto* real = json.real()) return *real;
  throw CommandFailure(fmt::format("{}: not a JSON number", file.string()));
}

Data readJSON(const std::filesystem::path& file) {
  auto bytes = readFile(file);
  (void)parsed(file, bytes);
  return {std::move(bytes)};
}

PropertyList readPropertyList(const std::filesystem::path& file) {
  auto bytes = readFile(file);
  if (!LegacyArchive::propertyListDictionary(bytes))
    throw CommandFailure(
        fmt::format("{}: not a property list with a dictionary at its root", file.string()));
  return {{std::move(bytes)}};
}

Larder::KVStorage& keyValues(const Linux::StoreInspector& store) {
  const auto keyValues = store.keyValues();
  if (!keyValues)
    throw CommandFailure("the secrets store keeps JSON and raw data only, no numbers or lists");
  return *keyValues;  // the inspector keeps it alive
}

}  // namespace

StoreValue readValue(const std::filesystem::path& file, std::string_view form) {
  if (form == "json") return readJSON(file);
  if (form == "number") return readNumber(file);
  if (form == "plist") return readPropertyList(file);
  return Data{readFile(file)};
}

void putValue(const Linux::StoreInspector& store, std::string_view key, const StoreValue& value) {
  if (const auto* data = std::get_if<Data>(&value)) {
    store.storage()->write(key, *data);
  } else if (const auto* number = std::get_if<double>(&value)) {
    keyValues(store).writeNumber(key, *number);
  } else {
    keyValues(store).writePropertyList(key, std::get<PropertyList>(value).document);
  }
}

}  // namespace kite::tool
