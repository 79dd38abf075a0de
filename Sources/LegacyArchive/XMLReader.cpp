#include "LegacyArchive/Allowance.h"
#include "LegacyArchive/PropertyList.h"
#include "LegacyArchive/Unicode.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

namespace kite::PropertyList {

namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

template <class Number>
std::optional<Number> numberFrom(std::string_view text, auto... base) {
  Number value{};
  const auto* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value, base...);
  if (text.empty() || result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return value;
}

std::optional<DynamicValue> integerFromText(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  if (text.starts_with("0x") || text.starts_with("0X")) {
    const auto value = numberFrom<std::uint64_t>(text.substr(2), 16);
    return value ? std::optional<DynamicValue>(*value) : std::nullopt;
  }
  if (const auto value = numberFrom<std::int64_t>(text)) return *value;
  if (const auto value = numberFrom<std::uint64_t>(text)) return *value;
  return std::nullopt;
}

std::optional<DynamicValue> realFromText(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  const auto value = numberFrom<double>(text);
  return value ? std::optional<DynamicValue>(*value) : std::nullopt;
}

// 2001-01-01T00:00:00Z and nothing else.
std::optional<DynamicValue> dateFrom(std::string_view text) {
  constexpr std::string_view form = "dddd-dd-ddTdd:dd:ddZ";
  if (text.size() != form.size()) return std::nullopt;
  for (std::size_t i = 0; i < form.size(); ++i)
    if (form[i] == 'd' ? text[i] < '0' || text[i] > '9' : text[i] != form[i]) return std::nullopt;
  const auto part = [&](std::size_t from, std::size_t size) {
    return numberFrom<int>(text.substr(from, size)).value_or(0);
  };
  using namespace std::chrono;
  const year_month_day day{year(part(0, 4)), month(static_cast<unsigned>(part(5, 2))),
                           std::chrono::day(static_cast<unsigned>(part(8, 2)))};
  if (!day.ok() || part(11, 2) > 23 || part(14, 2) > 59 || part(17, 2) > 60) return std::nullopt;
  const sys_seconds time =
      sys_days(day) + hours(part(11, 2)) + minutes(part(14, 2)) + seconds(part(17, 2));
  return Date{static_cast<double>(time.time_since_epoch().count())};
}

int base64Digit(char character) {
  if (character >= 'A' && character <= 'Z') return character - 'A';
  if (character >= 'a' && character <= 'z') return character - 'a' + 26;
  if (character >= '0' && character <= '9') return character - '0' + 52;
  return character == '+' ? 62 : character == '/' ? 63 : -1;
}

std::optional<DynamicValue> dataFrom(std::string_view text) {
  std::string bytes;
  std::uint32_t bits = 0;
  int count = 0;
  for (const char character : text.substr(0, text.find('='))) {
    if (blanks.find(character) != std::string_view::npos) continue;
    const auto digit = base64Digit(character);
    if (digit < 0) return std::nullopt;
    bits = bits << 6 | static_cast<std::uint32_t>(digit);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 0xFF);
  }
  return Data{std::move(bytes)};
}

/// The value of an element without child elements, such as `<integer>5</integer>`.
std::optional<DynamicValue> scalar(std::string_view element, const std::string& text) {
  if (element == "string") return text;
  if (element == "true" || element == "false") return element == "true";
  if (element == "integer") return integerFromText(trimmed(text));
  if (element == "real") return realFromText(trimmed(text));
  if (element == "date") return dateFrom(trimmed(text));
  if (element == "data") return dataFrom(text);
  return std::nullopt;
}

struct Tag {
  std::string_view name;
  bool isClosing = false;
  bool isEmpty = false;  ///< `<name/>`: it has no contents and no closing tag
};

/// The few constructs of XML that property lists use. Document types are passed over unread.
class XMLReader {
 public:
  explicit XMLReader(std::string_view document) : _rest(document), _allowance(document.size()) {}

  std::optional<DynamicValue> document() {
    if (_rest.starts_with(byteOrderMark)) _rest.remove_prefix(byteOrderMark.size());
    const auto root = nextTag();
    if (!root || root->name != "plist" || root->isClosing || root->isEmpty) return std::nullopt;
    const auto first = nextTag();
    auto value = first ? element(*first, maximumDepth) : std::nullopt;
    return value && closes("plist") ? value : std::nullopt;
  }

 private:
  using Value = std::optional<DynamicValue>;

  Value element(const Tag& tag, int depth) {
    if (tag.isClosing || depth == 0 || !_allowance.spend()) return std::nullopt;
    if (tag.name == "dict") return dictionary(tag, depth);
    if (tag.name == "array") return array(tag, depth);
    const auto text = contents(tag);
    return text ? scalar(tag.name, *text) : std::nullopt;
  }

  Value array(const Tag& opening, int depth) {
    DynamicValue::Array elements;
    if (opening.isEmpty) return DynamicValue(std::move(elements));
    for (auto tag = nextTag(); tag; tag = nextTag()) {
      if (tag->isClosing) return ends("array", *tag, DynamicValue(std::move(elements)));
      auto value = element(*tag, depth - 1);
      if (!value) return std::nullopt;
      elements.push_back(*std::move(value));
    }
    return std::nullopt;
  }

  Value dictionary(const Tag& opening, int depth) {
    DynamicValue::Dictionary entries;
    if (opening.isEmpty) return DynamicValue(std::move(entries));
    for (auto tag = nextTag(); tag; tag = nextTag()) {
      if (tag->isClosing) return ends("dict", *tag, DynamicValue(std::move(entries)));
      auto key = tag->name == "key" && _allowance.spend() ? contents(*tag) : std::nullopt;
      const auto next = key ? nextTag() : std::nullopt;
      auto value = next ? element(*next, depth - 1) : std::nullopt;
      if (!value) return std::nullopt;
      entries.push_back({*std::move(key), *std::move(value)});
    }
    return std::nullopt;
  }

  static Value ends(std::string_view name, const Tag& tag, DynamicValue value) {
    return tag.name == name ? Value(std::move(value)) : std::nullopt;
  }

  bool closes(std::string_view name) {
    const auto tag = nextTag();
    return tag && tag->isClosing && tag->name == name;
  }

  /// The next tag, with nothing but blanks and comments before it.
  std::optional<Tag> nextTag() {
    for (;;) {
      _rest.remove_prefix(std::min(_rest.find_first_not_of(blanks), _rest.size()));
      if (!_rest.starts_with('<')) return std::nullopt;
      if (!_rest.starts_with("<?") && !_rest.starts_with("<!")) return tag();
      if (!skipAside()) return std::nullopt;
    }
  }
  bool skipAside() {
    if (_rest.starts_with("<!--")) return skipPast("-->", 4);
    return _rest.starts_with("<?") ? skipPast("?>", 2) : skipPast(">", 2);
  }

  std::optional<Tag> tag() {
    const auto end = _rest.find('>');
    if (end == std::string_view::npos) return std::nullopt;
    auto inside = _rest.substr(1, end - 1);
    _rest.remove_prefix(end + 1);
    Tag tag;
    if (inside.starts_with('/')) {
      tag.isClosing = true;
      inside.remove_prefix(1);
    } else if (inside.ends_with('/')) {
      tag.isEmpty = true;
      inside.remove_suffix(1);
    }
    tag.name = inside.substr(0, inside.find_first_of(blanks));
    return tag;
  }

  /// The text up to the closing tag, which it takes as well.
  std::optional<std::string> contents(const Tag& opening) {
    std::string text;
    if (opening.isEmpty || opening.isClosing)
      return opening.isEmpty ? std::optional(text) : std::nullopt;
    for (;;) {
      const auto markup = _rest.find('<');
      if (markup == std::string_view::npos || !appendUnescaped(text, _rest.substr(0, markup)))
        return std::nullopt;
      _rest.remove_prefix(markup);
      if (_rest.starts_with("</")) break;
      if (!appendCharacterData(text)) return std::nullopt;
    }
    return closes(opening.name) && _allowance.spend(text.size()) ? std::optional(std::move(text))
                                                                 : std::nullopt;
  }
  bool appendCharacterData(std::string& text) {
    constexpr std::string_view opening = "<![CDATA[", closing = "]]>";
    if (_rest.starts_with("<!--")) return skipPast("-->", 4);
    const auto end = _rest.find(closing);
    if (!_rest.starts_with(opening) || end == std::string_view::npos) return false;
    text += _rest.substr(opening.size(), end - opening.size());
    _rest.remove_prefix(end + closing.size());
    return true;
  }

  static bool appendUnescaped(std::string& text, std::string_view escaped) {
    for (;;) {
      const auto at = escaped.find('&');
      text += escaped.substr(0, at);
      if (at == std::string_view::npos) return true;
      escaped.remove_prefix(at + 1);
      const auto end = escaped.find(';');
      if (end == std::string_view::npos || !appendEntity(text, escaped.substr(0, end)))
        return false;
      escaped.remove_prefix(end + 1);
    }
  }
  static bool appendEntity(std::string& text, std::string_view name) {
    constexpr std::pair<std::string_view, char> known[] = {
        {"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& [knownName, character] : known)
      if (name == knownName) return text += character, true;
    if (!name.starts_with('#')) return false;
    const bool isHexadecimal = name.starts_with("#x");
    name.remove_prefix(isHexadecimal ? 2 : 1);
    const auto codePoint = numberFrom<std::uint32_t>(name, isHexadecimal ? 16 : 10);
    if (!codePoint) return false;
    appendUTF8(text, *codePoint);
    return true;
  }

  bool skipPast(std::string_view end, std::size_t from) {
    const auto at = _rest.find(end, from);
    if (at == std::string_view::npos) return false;
    _rest.remove_prefix(at + end.size());
    return true;
  }

  std::string_view _rest;
  Allowance _allowance;
};

}  // namespace

std::optional<DynamicValue> readXML(std::string_view document) {
  return XMLReader(document).document();
}

}  // namespace kite::PropertyList
