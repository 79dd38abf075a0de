#include <Kite/Base/URL.h>

#include <algorithm>

namespace kite {
namespace {

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHexDigit(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
char lowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Letters, digits, these other characters, and percent signs before two hexadecimal digits.
bool consistsOf(std::string_view punctuation, std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isLetter(text[i]) || isDigit(text[i])) continue;
    if (punctuation.find(text[i]) != std::string_view::npos) continue;
    const bool isEscape =
        text[i] == '%' && text.size() - i > 2 && isHexDigit(text[i + 1]) && isHexDigit(text[i + 2]);
    if (!isEscape) return false;
    i += 2;
  }
  return true;
}

bool isScheme(std::string_view text) {
  return !text.empty() && isLetter(text.front()) &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return isLetter(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
         });
}

bool isPort(std::string_view text) {
  unsigned port = 0;
  for (const char c : text) {
    if (!isDigit(c)) return false;
    port = port * 10 + static_cast<unsigned>(c - '0');
    if (port > 65535) return false;
  }
  return true;
}

bool isHost(std::string_view text) {
  if (!text.starts_with('[')) return !text.empty() && consistsOf("-._~!$&'()*+,;=", text);
  const auto address = text.substr(1, text.size() - 2);
  return text.size() > 2 && text.ends_with(']') &&
         std::all_of(address.begin(), address.end(),
                     [](char c) { return isHexDigit(c) || c == ':' || c == '.'; });
}

bool isAuthority(std::string_view text) {
  if (const auto at = text.find('@'); at != std::string_view::npos) {
    if (!consistsOf("-._~!$&'()*+,;=:", text.substr(0, at))) return false;
    text.remove_prefix(at + 1);
  }
  const auto colon = text.rfind(':');
  const bool hasPort = colon != std::string_view::npos && !text.ends_with(']');
  return hasPort ? isHost(text.substr(0, colon)) && isPort(text.substr(colon + 1)) : isHost(text);
}

bool isPathQueryAndFragment(std::string_view text) {
  const auto hash = std::min(text.find('#'), text.size());
  constexpr std::string_view allowed = "-._~!$&'()*+,;=:@/?";
  return consistsOf(allowed, text.substr(0, hash)) &&
         (hash == text.size() || consistsOf(allowed, text.substr(hash + 1)));
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
  const auto colon = std::min(text.find(':'), text.size());
  const auto afterScheme = text.substr(colon);
  if (!isScheme(text.substr(0, colon)) || !afterScheme.starts_with("://")) return std::nullopt;
  const auto hierarchy = afterScheme.substr(3);
  const auto authorityEnd = std::min(hierarchy.find_first_of("/?#"), hierarchy.size());
  if (!isAuthority(hierarchy.substr(0, authorityEnd))) return std::nullopt;
  if (!isPathQueryAndFragment(hierarchy.substr(authorityEnd))) return std::nullopt;
  return URL(std::string(text));
}

std::string URL::scheme() const {
  std::string scheme = _text.substr(0, _text.find(':'));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(), lowerCase);
  return scheme;
}

}  // namespace kite
