#include "Store/StoredText.h"

#include <Kite/JSONValue.h>
#include <Kite/Platform/LegacyArchive.h>
#include <Kite/Platform/Lockwork.h>

#include "Common/WriteJSON.h"

namespace kite::tool {
namespace {

JSONValue toJSONValue(const DynamicValue& value);

JSONValue toJSONValue(const DynamicValue::Array& elements) {
  JSONValue::Array array;
  for (const auto& element : elements) array.push_back(toJSONValue(element));
  return array;
}

JSONValue toJSONValue(const DynamicValue::Dictionary& dictionary) {
  JSONValue::Object::Entries entries;
  for (const auto& [key, value] : dictionary) {
    if (const auto* text = key.string()) entries.emplace_back(*text, toJSONValue(value));
  }
  return JSONValue::Object::fromUnsorted(std::move(entries));
}

JSONValue toJSONValue(const DynamicValue& value) {
  if (const auto* flag = value.boolean()) return *flag;
  if (const auto* number = value.integer()) return *number;
  if (const auto* number = value.unsignedInteger()) return static_cast<double>(*number);
  if (const auto* number = value.real()) return *number;
  if (const auto* text = value.string()) return *text;
  if (const auto* elements = value.array()) return toJSONValue(*elements);
  if (const auto* entries = value.dictionary()) return toJSONValue(*entries);
  if (const auto* date = value.date()) return date->secondsSince1970;
  if (const auto* data = value.data()) return Lockwork::hexadecimal(data->bytes);
  return Null{};
}

}  // namespace

std::optional<std::string> storedText(const Linux::StoreInspector& store, std::string_view key) {
  if (const auto value = store.storage()->read(key)) return value->data().bytes;
  const auto keyValues = store.keyValues();
  if (!keyValues) return std::nullopt;
  if (const auto number = keyValues->readNumber(key)) return toJSON(*number) + "\n";
  const auto list = keyValues->readPropertyList(key);
  const auto dictionary = list ? LegacyArchive::propertyListDictionary(list->bytes) : std::nullopt;
  return dictionary ? std::optional(toJSON(toJSONValue(*dictionary)) + "\n") : std::nullopt;
}

}  // namespace kite::tool
