#pragma once

#include "JSON/JSONEncoder.h"
#include "JSON/JSONNumber.h"
#include "JSON/JSONString.h"

#include <cassert>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kite {

/// Writes at the end of a text, in room that was made ahead: as many bytes as all that is put takes
/// at most.
class Pen {
 public:
  Pen(std::string& out, std::size_t room) : _out(out), _room(room) { makeRoom(); }
  Pen(const Pen&) = delete;
  Pen& operator=(const Pen&) = delete;
  ~Pen() { endText(); }

  /// Where the next character comes in the text.
  std::size_t position() const { return static_cast<std::size_t>(_place - _out.data()); }

  void put(char character) {
    assert(hasRoom(1));
    *_place++ = character;
  }
  void put(std::string_view text) {
    assert(hasRoom(text.size()));
    text.copy(_place, text.size());
    _place += text.size();
  }
  void putQuoted(std::string_view plain) {
    put('"');
    put(plain);
    put('"');
  }
  /// False, and nothing is put, when the text does not stand for itself.
  bool putIfPlain(std::string_view text) {
    const bool isPlain = isPlainUTF8(text);
    if (isPlain) putQuoted(text);
    return isPlain;
  }
  /// Any text. Where it needs escapes it makes its own room.
  void putString(std::string_view text) {
    if (putIfPlain(text)) return;
    putBy([&](std::string& out) {
      appendJSONString(out, text);
      return true;
    });
  }
  /// False, and nothing is put, when the number has no text.
  template <class Number>
  bool putNumber(Number number) {
    assert(hasRoom(longestJSONNumber));
    char* const end = writeJSONNumber(_place, number);
    if (end) _place = end;
    return end != nullptr;
  }
  [[nodiscard]] std::optional<EncodingError> putReal(double number) {
    if (putNumber(number)) return std::nullopt;
    std::string nothing;
    return appendJSON(nothing, number);
  }
  /// For what makes its own room.
  template <class Append>
  bool putBy(Append append) {
    endText();
    const bool isDone = append(_out);
    makeRoom();
    return isDone;
  }

 private:
  bool hasRoom(std::size_t size) const { return position() + size <= _out.size(); }
  void makeRoom() {
    const std::size_t size = _out.size();
    _out.resize(size + _room);
    _place = _out.data() + size;
  }
  void endText() { _out.resize(position()); }

  std::string& _out;
  const std::size_t _room;
  char* _place = nullptr;
};

}  // namespace kite
