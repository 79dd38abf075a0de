#include "Queue/TextScanner.h"

#include <cstring>

namespace kite {
namespace {

bool isPartOfNumber(char c) {
  return (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e' || c == 'E';
}

}  // namespace

bool TextScanner::skip(std::string_view literal) {
  const auto rest = _text.substr(_position);
  if (rest.size() < literal.size() || std::memcmp(rest.data(), literal.data(), literal.size()) != 0)
    return false;
  _position += literal.size();
  return true;
}

bool TextScanner::skipPlainString() {
  if (!skip("\"")) return false;
  const auto content = _text.substr(_position, _text.find('"', _position) - _position);
  _position += content.size();
  return !content.empty() && content.find('\\') == std::string_view::npos && skip("\"");
}

bool TextScanner::skipString() {
  if (!skip("\"")) return false;
  while ((_position = _text.find_first_of("\"\\", _position)) != std::string_view::npos) {
    if (_text[_position] == '"') return skip("\"");
    _position += 2;
  }
  return false;
}

bool TextScanner::skipNumber() {
  const std::size_t begin = _position;
  while (_position < _text.size() && isPartOfNumber(_text[_position])) ++_position;
  return _position < _text.size() && _position > begin;
}

bool TextScanner::skipObject() {
  if (_text.substr(_position, 1) != "{") return false;
  std::size_t depth = 0;
  while ((_position = _text.find_first_of("\"{}", _position)) != std::string_view::npos) {
    if (_text[_position] == '"') {
      if (!skipString()) return false;
      continue;
    }
    depth = _text[_position] == '{' ? depth + 1 : depth - 1;
    ++_position;
    if (depth == 0) return true;
  }
  return false;
}

bool TextScanner::skipUser() {
  return skip(R"(,"app":)") && skipString() && skip(R"(,"user":{"info":)") && skipObject() &&
         skip(R"(,"ids":)") && skipObject() && skip("}");
}

}  // namespace kite
