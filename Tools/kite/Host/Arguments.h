#pragma once

#include <Kite/KiteValue.h>
#include <Kite/Severity.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

/// What is wrong with a line, for its answer.
class BadLine : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Where a line stands.
struct Place {
  std::string source;
  std::uint64_t line;
};

/// The members of one line, asked for by kind. Every question throws `BadLine` when the member is
/// missing or of another kind.
class Arguments {
 public:
  /// Throws `BadLine` when the line has a member other than "op" and those `allowed`.
  Arguments(JSONValue::Object members, const std::vector<std::string_view>& allowed, Place place);

  const Place& place() const { return _place; }

  std::string text(std::string_view name) const;
  bool boolean(std::string_view name) const;
  /// An integer or a real.
  double number(std::string_view name) const;
  JSONValue value(std::string_view name) const;
  KiteData data(std::string_view name) const;
  Severity severity(std::string_view name) const;
  std::set<std::string> names(std::string_view name) const;
  std::map<std::string, std::int64_t> segments(std::string_view name) const;

  /// Nothing when the member is missing or null.
  std::optional<std::string> optionalText(std::string_view name) const;
  std::optional<double> optionalNumber(std::string_view name) const;
  std::optional<std::uint64_t> optionalLine(std::string_view name) const;
  /// Empty when the member is missing.
  KiteData optionalData(std::string_view name) const;

 private:
  const JSONValue& member(std::string_view name) const;
  const JSONValue* present(std::string_view name) const;

  JSONValue::Object _members;
  Place _place;
};

}  // namespace kite::tool
