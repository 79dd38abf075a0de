#include <Kite/Base/URL.h>

#include <algorithm>
#include <optional>

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

/// The parts of a text that has a scheme; not yet looked at, but for where they end.
struct Parts {
  std::string_view scheme;
  std::optional<std::string_view> userInfo;
  std::string_view host;
  std::string_view port;
  std::string_view rest;  ///< path, query and fragment

  explicit Parts(std::string_view text) {
    const auto colon = std::min(text.find("://"), text.size());
    scheme = text.substr(0, colon);
    if (colon == text.size()) return;
    const auto hierarchy = text.substr(colon + 3);
    const auto end = std::min(hierarchy.find_first_of("/?#"), hierarchy.size());
    splitAuthority(hierarchy.substr(0, end));
    rest = hierarchy.substr(end);
  }

 private:
  void splitAuthority(std::string_view authority) {
    if (const auto at = authority.find('@'); at != authority.npos) {
      userInfo = authority.substr(0, at);
      authority.remove_prefix(at + 1);
    }
    const auto colon = authority.ends_with(']') ? authority.npos : authority.rfind(':');
    host = authority.substr(0, colon);
    if (colon != authority.npos) port = authority.substr(colon + 1);
  }
};

bool isPathQueryAndFragment(std::string_view text) {
  const auto hash = std::min(text.find('#'), text.size());
  constexpr std::string_view allowed = "-._~!$&'()*+,;=:@/?";
  return consistsOf(allowed, text.substr(0, hash)) &&
         (hash == text.size() || consistsOf(allowed, text.substr(hash + 1)));
}

/// What is wrong with the first part that is wrong, or null.
const char* fault(std::string_view text) {
  const Parts parts(text);
  if (parts.scheme.size() == text.size()) return "it does not begin with a scheme and \"://\"";
  if (!isScheme(parts.scheme)) return "its scheme is malformed";
  if (parts.userInfo && !consistsOf("-._~!$&'()*+,;=:", *parts.userInfo))
    return "its user information holds a character that must be percent-encoded";
  if (parts.host.empty()) return "it has no host";
  if (!isHost(parts.host)) return "its host is malformed";
  if (!isPort(parts.port)) return "its port is not a number up to 65535";
  if (!isPathQueryAndFragment(parts.rest))
    return "its path, query or fragment holds a character that must be percent-encoded";
  return nullptr;
}

}  // namespace

Result<URL, std::string> URL::parse(std::string_view text) {
  if (const char* const reason = fault(text)) return Failure{std::string(reason)};
  return URL(std::string(text));
}

std::string URL::scheme() const {
  std::string scheme(Parts(_text).scheme);
  std::transform(scheme.begin(), scheme.end(), scheme.begin(), lowerCase);
  return scheme;
}

std::string URL::origin() const {
  const Parts parts(_text);
  auto origin = scheme().append("://").append(parts.host);
  if (!parts.port.empty()) origin.append(":").append(parts.port);
  return origin;
}

}  // namespace kite
