#pragma once

#include <Kite/JSONValue.h>

#include <optional>
#include <utility>
#include <vector>

namespace kite {

/// A container that is being converted to JSON: a cursor over its children, and those converted.
///
/// A `Cursor` walks the children of a container: `isObject()`, `count()` (at most that many),
/// `isAtEnd()`, `key()` (in objects, UTF-8), `value()` and `advance()`.
template <class Cursor>
class OpenContainer {
 public:
  explicit OpenContainer(Cursor children) : cursor(std::move(children)) {
    cursor.isObject() ? _members.reserve(cursor.count()) : _elements.reserve(cursor.count());
  }

  /// Adds the converted child under the cursor.
  void add(JSONValue&& child) {
    if (cursor.isObject()) {
      _members.emplace_back(cursor.key(), std::move(child));
    } else {
      _elements.push_back(std::move(child));
    }
  }
  JSONValue result() && {
    if (cursor.isObject()) return JSONValue::Object::fromUnsorted(std::move(_members));
    return std::move(_elements);
  }

  Cursor cursor;

 private:
  JSONValue::Object::Entries _members;
  JSONValue::Array _elements;
};

/// Converts the container that `outermost` walks, without recursion, for it may nest deeply.
///
/// `cursorOf(value)` is the cursor of a value that is a container, or nothing; `leaf(value)` is any
/// other value's JSON, or nothing, which leaves the value out. Of equal keys the last one counts.
template <class Cursor, class CursorOf, class Leaf>
JSONValue convertTree(Cursor outermost, CursorOf cursorOf, Leaf leaf) {
  std::vector<OpenContainer<Cursor>> open;
  open.emplace_back(std::move(outermost));
  while (true) {
    auto& innermost = open.back();
    if (innermost.cursor.isAtEnd()) {
      JSONValue done = std::move(innermost).result();
      open.pop_back();
      if (open.empty()) return done;
      open.back().add(std::move(done));
      open.back().cursor.advance();
      continue;
    }
    auto&& child = innermost.cursor.value();
    if (auto inner = cursorOf(child)) {
      open.emplace_back(*std::move(inner));
    } else {
      if (auto value = leaf(child)) innermost.add(*std::move(value));
      innermost.cursor.advance();
    }
  }
}

}  // namespace kite
