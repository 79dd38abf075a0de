#include "Inspector/Explanation.h"
#include "Inspector/JSONPlaces.h"

#include <fmt/format.h>

#include <algorithm>

namespace kite::tool {
namespace {

constexpr std::size_t longestText = 16 * 1024 * 1024;
constexpr std::size_t aroundPlace = 40;  // bytes on either side

std::string excerptAt(std::string_view text, std::size_t offset) {
  const std::size_t begin = offset - std::min(offset, aroundPlace);
  return std::string(text.substr(begin, offset - begin + aroundPlace));
}

BodyPlace placed(std::string path, std::string_view text, std::optional<std::size_t> offset) {
  return {
      .path = std::move(path), .offset = offset, .excerpt = offset ? excerptAt(text, *offset) : ""};
}

/// Takes `prefix` off the front.
bool takePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

/// The path of the event with that id.
std::string pathOfEvent(std::string_view id, std::string_view text) {
  std::string found;
  JSONPlaces(text, [&](const std::string& path, std::string_view value) {
    const auto dot = path.find('.');
    const bool isID =
        path.starts_with("events[") && path.substr(std::min(dot, path.size())) == ".id";
    if (isID && value == "\"" + std::string(id) + "\"") found = path.substr(0, dot);
    return found.empty();
  }).read();
  return found;
}

/// Where the value is, or else the innermost one around it.
std::optional<std::size_t> offsetOf(std::string path, std::string_view text) {
  while (!path.empty()) {
    std::optional<std::size_t> offset;
    JSONPlaces(text, [&](const std::string& each, std::string_view value) {
      if (each == path) offset = static_cast<std::size_t>(value.data() - text.data());
      return !offset;
    }).read();
    if (offset) return offset;
    path.resize(std::min(path.rfind('.'), path.size()) == path.size() ? 0 : path.rfind('.'));
  }
  return 0;
}

/// The event's path and, behind it, the member that the rule names first.
std::optional<BodyPlace> placeInEvents(std::string_view rule, std::string_view text) {
  const auto colon = rule.find(": ");
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view name = rule.substr(0, colon);
  rule.remove_prefix(colon + 2);
  std::string path;
  if (takePrefix(name, "event at position ")) {
    path = fmt::format("events[{}]", name);
  } else if (takePrefix(name, "event ")) {
    path = pathOfEvent(name, text);
  }
  if (path.empty()) return std::nullopt;
  const auto member = rule.substr(0, rule.find(' '));
  if (member != "must") path += "." + std::string(member);
  return placed(path, text, offsetOf(path, text));
}

BodyPlace placeInText(std::string_view text) {
  const auto offset =
      JSONPlaces(text, [](const std::string&, std::string_view) { return true; }).read();
  return placed("", text, offset);
}

std::optional<BodyPlace> placeOfRepeated(std::string_view text) {
  JSONPlaces places(text, [](const std::string&, std::string_view) { return true; });
  places.read();
  if (!places.repeated()) return std::nullopt;
  return placed(places.repeated()->first, text, places.repeated()->second);
}

}  // namespace

std::optional<BodyPlace> placeOf(std::string_view message, std::string_view text) {
  if (text.size() > longestText) return std::nullopt;
  if (message.starts_with("not JSON")) return placeInText(text);
  if (message.starts_with("event ")) return placeInEvents(message, text);
  if (!takePrefix(message, "the body: ")) return std::nullopt;
  if (message.starts_with("a key is repeated")) return placeOfRepeated(text);
  const std::string member(message.substr(0, message.find(' ')));
  return placed(member, text, offsetOf(member, text));
}

}  // namespace kite::tool
