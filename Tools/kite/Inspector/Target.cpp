#include "Inspector/Target.h"

#include <algorithm>
#include <charconv>

namespace kite::tool {
namespace {

std::optional<std::string> decoded(std::string_view text, bool plusIsBlank) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%') {
      result += plusIsBlank && text[at] == '+' ? ' ' : text[at];
      continue;
    }
    unsigned char byte = 0;
    const auto digits = text.substr(at + 1, 2);
    const auto [rest, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (digits.size() != 2 || error != std::errc() || rest != digits.data() + 2) {
      return std::nullopt;
    }
    result += static_cast<char>(byte);
    at += 2;
  }
  return result;
}

/// Calls `visit` with each "name=value", until it returns false.
template <class Visit>
bool forEachMember(std::string_view target, const Visit& visit) {
  const auto mark = target.find('?');
  if (mark == std::string_view::npos) return true;
  std::string_view query = target.substr(mark + 1);
  while (!query.empty()) {
    const auto end = std::min(query.find('&'), query.size());
    if (end > 0 && !visit(query.substr(0, end))) return false;
    query.remove_prefix(std::min(end + 1, query.size()));
  }
  return true;
}

}  // namespace

std::string Target::member(const std::string& name) const {
  const auto found = members.find(name);
  return found == members.end() ? "" : found->second;
}

std::optional<Target> parseTarget(std::string_view text) {
  const auto path = decoded(text.substr(0, text.find('?')), /*plusIsBlank=*/false);
  if (!path) return std::nullopt;
  Target target{.path = *path, .members = {}};
  const bool isWellFormed = forEachMember(text, [&target](std::string_view member) {
    const auto equals = std::min(member.find('='), member.size());
    const auto name = decoded(member.substr(0, equals), /*plusIsBlank=*/true);
    const auto value =
        decoded(member.substr(std::min(equals + 1, member.size())), /*plusIsBlank=*/true);
    if (name && value) target.members.emplace(*name, *value);
    return name && value;
  });
  return isWellFormed ? std::optional(std::move(target)) : std::nullopt;
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc() || rest != end || number < 0) return std::nullopt;
  return number;
}

std::string queryWithout(std::string_view target, std::string_view name) {
  std::string kept;
  forEachMember(target, [&](std::string_view member) {
    if (member.substr(0, member.find('=')) == name) return true;
    kept += kept.empty() ? '?' : '&';
    kept += member;
    return true;
  });
  return kept;
}

}  // namespace kite::tool
