#pragma once

#include <Kite/JSONValue.h>

#include "JSON/JSONWriter.h"

#include <rapidcheck.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kite {

/// How a counterexample is printed.
inline void showValue(const JSONValue& value, std::ostream& stream) {
  std::string text;
  if (appendJSON(text, value)) text = "no JSON";
  stream << text;
}

}  // namespace kite

namespace kite::test {

/// One of a few values, so that equal ones meet.
inline rc::Gen<JSONValue> anyLeaf() {
  return rc::gen::element<JSONValue>(1, 2, 1.0, 2.5, true, "text", Null{}, JSONValue::Array{1});
}

inline rc::Gen<JSONValue> anyJSON(const std::vector<std::string>& keys, int depth);

/// An object with some of the keys, that nests as deep at most.
inline rc::Gen<JSONValue::Object> anyObject(const std::vector<std::string>& keys, int depth) {
  using Entries = std::vector<std::pair<std::string, JSONValue>>;
  return rc::gen::map(rc::gen::resize(static_cast<int>(keys.size()),
                                      rc::gen::container<Entries>(rc::gen::pair(
                                          rc::gen::elementOf(keys), anyJSON(keys, depth - 1)))),
                      [](const Entries& entries) {
                        JSONValue::Object object;
                        for (const auto& [key, value] : entries) object.insertOrAssign(key, value);
                        return object;
                      });
}

inline rc::Gen<JSONValue> anyJSON(const std::vector<std::string>& keys, int depth) {
  if (depth <= 0) return anyLeaf();
  return rc::gen::oneOf(anyLeaf(), rc::gen::map(anyObject(keys, depth), [](auto object) {
                          return JSONValue(std::move(object));
                        }));
}

}  // namespace kite::test
