#include "Store/PropertyListFile.h"

#include "Common/CommandFailure.h"
#include "Common/ParseJSON.h"
#include "Common/ReadFile.h"

#include <fmt/format.h>
#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>

namespace kite::tool {
namespace {

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
using Text = std::unique_ptr<char, Free>;
using Tree = std::unique_ptr<void, decltype(&plist_free)>;

DynamicValue toDynamic(plist_t node, std::size_t depth);

DynamicValue::Dictionary dictionary(plist_t node, std::size_t depth) {
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const std::unique_ptr<void, Free> owner(iterator);
  DynamicValue::Dictionary entries;
  for (;;) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, iterator, &key, &value);
    const Text text(key);
    if (!value) return entries;
    entries.push_back({std::string(text.get()), toDynamic(value, depth + 1)});
  }
}

DynamicValue::Array array(plist_t node, std::size_t depth) {
  DynamicValue::Array elements;
  for (std::uint32_t at = 0; at < plist_array_get_size(node); ++at)
    elements.push_back(toDynamic(plist_array_get_item(node, at), depth + 1));
  return elements;
}

DynamicValue string(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return std::string(text, length);
}

DynamicValue data(plist_t node) {
  std::uint64_t length = 0;
  const char* bytes = plist_get_data_ptr(node, &length);
  return Data{std::string(bytes, length)};
}

DynamicValue integer(plist_t node) {
  std::uint64_t number = 0;
  plist_get_uint_val(node, &number);
  return static_cast<std::int64_t>(number);  // the library keeps a negative number so
}

DynamicValue real(plist_t node) {
  double number = 0;
  plist_get_real_val(node, &number);
  return number;
}

DynamicValue boolean(plist_t node) {
  std::uint8_t flag = 0;
  plist_get_bool_val(node, &flag);
  return flag != 0;
}

DynamicValue date(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  return Date::sinceReferenceDate(seconds + microseconds / 1e6);
}

DynamicValue toDynamic(plist_t node, std::size_t depth) {
  if (depth > maximumDepth)
    throw CommandFailure(fmt::format("nested deeper than {}", maximumDepth));
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
      return boolean(node);
    case PLIST_UINT:
      return integer(node);
    case PLIST_REAL:
      return real(node);
    case PLIST_STRING:
      return string(node);
    case PLIST_ARRAY:
      return array(node, depth);
    case PLIST_DICT:
      return dictionary(node, depth);
    case PLIST_DATE:
      return date(node);
    case PLIST_DATA:
      return data(node);
    case PLIST_KEY:
    case PLIST_UID:
    case PLIST_NONE:
      break;
  }
  throw CommandFailure(
      "a property list holds booleans, numbers, texts, dates, data and containers");
}

}  // namespace

DynamicValue::Dictionary readPropertyListFile(const std::filesystem::path& file) {
  const auto bytes = readFile(file);
  plist_t root = nullptr;
  if (bytes.size() <= std::numeric_limits<std::uint32_t>::max())
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  const Tree tree(root, plist_free);
  if (!root || plist_get_node_type(root) != PLIST_DICT)
    throw CommandFailure(
        fmt::format("{}: not a property list with a dictionary at its root", file.string()));
  return dictionary(root, 1);
}

}  // namespace kite::tool
