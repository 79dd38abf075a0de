#include "Inspector/JSONPlaces.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace kite::tool {
namespace {

constexpr int deepest = 600;

}  // namespace

std::optional<std::size_t> JSONPlaces::read() {
  try {
    value("", 0);
    skipBlanks();
    if (_at < _text.size()) return _at;
  } catch (const Error&) {
    return std::min(_at, _text.size());
  } catch (const Stop&) {
  }
  return std::nullopt;
}

void JSONPlaces::value(const std::string& path, int depth) {
  if (depth > deepest) throw Error{};
  skipBlanks();
  const std::size_t begin = _at;
  switch (peek()) {
    case '{':
      object(path, depth);
      break;
    case '[':
      array(path, depth);
      break;
    case '"':
      string();
      break;
    default:
      scalar();
  }
  if (!_visit(path, _text.substr(begin, _at - begin))) throw Stop{};
}

void JSONPlaces::object(const std::string& path, int depth) {
  expect('{');
  skipBlanks();
  std::set<std::string_view> keys;
  while (peek() != '}') {
    if (!keys.empty()) expect(',');
    skipBlanks();
    const std::size_t place = _at;
    const auto key = string();
    const std::string below = path.empty() ? std::string(key) : fmt::format("{}.{}", path, key);
    if (!keys.insert(key).second && !_repeated) _repeated = {below, place};
    skipBlanks();
    expect(':');
    value(below, depth + 1);
    skipBlanks();
  }
  expect('}');
}

void JSONPlaces::array(const std::string& path, int depth) {
  expect('[');
  skipBlanks();
  for (std::size_t index = 0; peek() != ']'; ++index) {
    if (index > 0) expect(',');
    value(fmt::format("{}[{}]", path, index), depth + 1);
    skipBlanks();
  }
  expect(']');
}

/// What stands between the quotes, as it is written.
std::string_view JSONPlaces::string() {
  expect('"');
  const std::size_t begin = _at;
  while (peek() != '"') {
    if (_at >= _text.size() || static_cast<unsigned char>(_text[_at]) < 0x20) throw Error{};
    _at += _text[_at] == '\\' ? std::size_t{2} : std::size_t{1};
  }
  expect('"');
  return _text.substr(begin, _at - begin - 1);
}

void JSONPlaces::scalar() {
  constexpr std::string_view letters = "+-.0123456789Eaeflnrstu";
  const std::size_t begin = _at;
  while (_at < _text.size() && letters.find(_text[_at]) != std::string_view::npos) ++_at;
  if (_at == begin) throw Error{};
}

void JSONPlaces::skipBlanks() {
  _at = std::min(_text.find_first_not_of(" \t\r\n", _at), _text.size());
}

void JSONPlaces::expect(char letter) {
  if (peek() != letter) throw Error{};
  ++_at;
}

}  // namespace kite::tool
