#include "Host/Arguments.h"

#include <fmt/format.h>

#include <algorithm>

namespace kite::tool {
namespace {

template <class Pointer>
auto& expect(Pointer contents, std::string_view name, std::string_view kind) {
  if (!contents) throw BadLine(fmt::format("\"{}\" must be {}", name, kind));
  return *contents;
}

KiteData toData(const JSONValue::Object& members) {
  KiteData data;
  for (const auto& [key, value] : members) data.set(key, value);
  return data;
}

}  // namespace

Arguments::Arguments(JSONValue::Object members, const std::vector<std::string_view>& allowed,
                     Place place)
    : _members(std::move(members)), _place(std::move(place)) {
  for (const auto& [key, value] : _members) {
    if (key != "op" && std::find(allowed.begin(), allowed.end(), key) == allowed.end())
      throw BadLine(fmt::format("unknown member \"{}\"", key));
  }
}

const JSONValue* Arguments::present(std::string_view name) const { return _members.at(name); }

const JSONValue& Arguments::member(std::string_view name) const {
  const auto* value = present(name);
  if (!value) throw BadLine(fmt::format("\"{}\" is missing", name));
  return *value;
}

std::string Arguments::text(std::string_view name) const {
  return expect(member(name).string(), name, "a string");
}

bool Arguments::boolean(std::string_view name) const {
  return expect(member(name).boolean(), name, "true or false");
}

double Arguments::number(std::string_view name) const {
  const auto& value = member(name);
  if (const auto* integer = value.integer()) return static_cast<double>(*integer);
  return expect(value.real(), name, "a number");
}

JSONValue Arguments::value(std::string_view name) const { return member(name); }

KiteData Arguments::data(std::string_view name) const {
  return toData(expect(member(name).object(), name, "an object"));
}

Severity Arguments::severity(std::string_view name) const {
  const auto wanted = text(name);
  for (const auto severity : allSeverities) {
    if (kite::text(severity) == wanted) return severity;
  }
  throw BadLine(fmt::format("\"{}\" must be Debug, Notice, Warning, Error or Critical", name));
}

std::set<std::string> Arguments::names(std::string_view name) const {
  std::set<std::string> names;
  for (const auto& element : expect(member(name).array(), name, "an array of strings"))
    names.insert(expect(element.string(), name, "an array of strings"));
  return names;
}

std::map<std::string, std::int64_t> Arguments::segments(std::string_view name) const {
  std::map<std::string, std::int64_t> segments;
  for (const auto& [key, value] : expect(member(name).object(), name, "an object of integers"))
    segments.emplace(key, expect(value.integer(), name, "an object of integers"));
  return segments;
}

std::optional<std::string> Arguments::optionalText(std::string_view name) const {
  const auto* value = present(name);
  if (!value || value->isNull()) return std::nullopt;
  return text(name);
}

std::optional<double> Arguments::optionalNumber(std::string_view name) const {
  const auto* value = present(name);
  return value && !value->isNull() ? std::optional(number(name)) : std::nullopt;
}

std::optional<std::uint64_t> Arguments::optionalLine(std::string_view name) const {
  const auto* value = present(name);
  if (!value || value->isNull()) return std::nullopt;
  const auto line = expect(value->integer(), name, "an integer");
  if (line < 0) throw BadLine(fmt::format("\"{}\" must not be negative", name));
  return static_cast<std::uint64_t>(line);
}

KiteData Arguments::optionalData(std::string_view name) const {
  return present(name) ? data(name) : KiteData{};
}

}  // namespace kite::tool
