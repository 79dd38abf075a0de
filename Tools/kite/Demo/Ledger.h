#pragma once

#include <Kite/JSONValue.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace kite::tool {

/// What the demo asked the library to record, to be held against what arrives.
class Ledger {
 public:
  struct Tracked {
    std::string type;
    JSONValue::Object content;
  };
  using Kind = std::pair<std::string, std::string>;  ///< type and detail, see `Event`

  /// Numbers an event that the host tracks: gives `content` with the number in it.
  JSONValue::Object track(const std::string& type, JSONValue::Object content);
  /// Numbers an event that the library has to refuse.
  JSONValue::Object trackInVain(JSONValue::Object content);
  /// Notes events that the library makes by itself.
  void expect(const std::string& type, const std::string& detail = "");

  const std::map<std::int64_t, Tracked>& tracked() const { return _tracked; }
  const std::map<Kind, std::size_t>& expected() const { return _expected; }
  std::size_t size() const;

 private:
  std::int64_t _lastSequence = 0;
  std::map<std::int64_t, Tracked> _tracked;
  std::map<Kind, std::size_t> _expected;
};

}  // namespace kite::tool
