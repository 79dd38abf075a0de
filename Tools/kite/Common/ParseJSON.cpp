#include "Common/ParseJSON.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;

struct Refused : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string tooDeep() { return fmt::format("nested deeper than {}", maximumDepth); }

JSONValue convert(dom::element element, std::size_t depth);

JSONValue convertArray(dom::array elements, std::size_t depth) {
  JSONValue::Array result;
  result.reserve(elements.size());
  for (const auto element : elements) result.push_back(convert(element, depth));
  return result;
}

JSONValue convertObject(dom::object members, std::size_t depth) {
  JSONValue::Object::Entries entries;
  entries.reserve(members.size());
  for (const auto& [key, value] : members) entries.emplace_back(key, convert(value, depth));
  const auto count = entries.size();
  auto object = JSONValue::Object::fromUnsorted(std::move(entries));
  if (object.size() != count) throw Refused("a member is given twice");
  return object;
}

std::string describe(simdjson::error_code error) {
  if (error == simdjson::DEPTH_ERROR) return tooDeep();
  if (error == simdjson::NUMBER_ERROR) return "a number is malformed or does not fit into 64 bits";
  if (error == simdjson::EMPTY) return "no JSON found";
  return fmt::format("not JSON: {}", simdjson::error_message(error));
}

// The parser's own limit does not count an empty container.
std::size_t within(std::size_t depth) {
  if (depth == maximumDepth) throw Refused(tooDeep());
  return depth + 1;
}

JSONValue convert(dom::element element, std::size_t depth) {
  switch (element.type()) {
    case dom::element_type::OBJECT:
      return convertObject(element.get_object().value_unsafe(), within(depth));
    case dom::element_type::ARRAY:
      return convertArray(element.get_array().value_unsafe(), within(depth));
    case dom::element_type::STRING:
      return element.get_string().value_unsafe();
    case dom::element_type::INT64:
      return element.get_int64().value_unsafe();
    case dom::element_type::UINT64:
      throw Refused(fmt::format("{} does not fit into 64 bits", std::uint64_t(element)));
    case dom::element_type::DOUBLE:
      return element.get_double().value_unsafe();
    case dom::element_type::BOOL:
      return element.get_bool().value_unsafe();
    case dom::element_type::NULL_VALUE:
      return Null{};
  }
  throw Refused("unknown kind of value");
}

}  // namespace

Result<JSONValue, std::string> parseJSON(std::string_view text) {
  dom::parser parser;
  auto error = parser.allocate(std::max<std::size_t>(text.size(), 64), maximumDepth + 1);
  dom::element root;
  if (!error) error = parser.parse(text.data(), text.size()).get(root);
  if (error) return Failure{describe(error)};
  try {
    return convert(root, 0);
  } catch (const Refused& refused) {
    return Failure{std::string(refused.what())};
  }
}

}  // namespace kite::tool
