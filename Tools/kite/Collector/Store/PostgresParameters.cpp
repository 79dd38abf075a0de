#include "Collector/Store/PostgresParameters.h"

#include "JSON/UTF8.h"

#include <fmt/format.h>

#include <bit>

namespace kite::tool {
namespace {

/// Most significant byte first.
template <class Number>
void put(std::string& out, Number number) {
  for (int shift = 8 * (int{sizeof number} - 1); shift >= 0; shift -= 8) {
    out += static_cast<char>(number >> shift);
  }
}

void putLength(std::string& out, std::size_t length) {
  put(out, static_cast<std::uint32_t>(length));
}

}  // namespace

void PostgresArray::add(std::int64_t number) {
  ++_count;
  putLength(_elements, sizeof number);
  put(_elements, static_cast<std::uint64_t>(number));
}

void PostgresArray::add(double number) { add(std::bit_cast<std::int64_t>(number)); }

void PostgresArray::add(bool flag) {
  ++_count;
  putLength(_elements, 1);
  _elements += flag ? '\1' : '\0';
}

void PostgresArray::add(std::string_view text) {
  if (!isUTF8(text)) return add(repairedUTF8(text));
  ++_count;
  const bool isJSON = _type == Of::json;
  putLength(_elements, text.size() + (isJSON ? 1 : 0));
  if (isJSON) _elements += '\1';  // the version of the form
  _elements += text;
}

std::string PostgresArray::bytes() const {
  std::string bytes;
  bytes.reserve(20 + _elements.size());
  put(bytes, std::uint32_t{_count == 0 ? 0U : 1U});  // dimensions
  put(bytes, std::uint32_t{0});                      // there are no nulls
  put(bytes, static_cast<std::uint32_t>(_type));
  if (_count == 0) return bytes;
  put(bytes, _count);
  put(bytes, std::uint32_t{1});  // the first index
  return bytes + _elements;
}

void PostgresParameters::add(std::string_view text) {
  _values.push_back({isUTF8(text) ? std::string(text) : repairedUTF8(text)});
}

void PostgresParameters::add(double number) { _values.push_back({fmt::format("{}", number)}); }

std::vector<const char*> PostgresParameters::values() const {
  std::vector<const char*> values;
  for (const Value& value : _values) values.push_back(value.bytes ? value.bytes->c_str() : nullptr);
  return values;
}

std::vector<int> PostgresParameters::lengths() const {
  std::vector<int> lengths;
  for (const Value& value : _values) {
    lengths.push_back(value.bytes ? static_cast<int>(value.bytes->size()) : 0);
  }
  return lengths;
}

std::vector<int> PostgresParameters::formats() const {
  std::vector<int> formats;
  for (const Value& value : _values) formats.push_back(value.isBinary ? 1 : 0);
  return formats;
}

}  // namespace kite::tool
