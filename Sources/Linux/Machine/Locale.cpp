#include "Linux/Machine/Machine.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

namespace kite::Linux {
namespace {

struct Name {
  std::string language;
  std::optional<std::string> region;

  std::string joined(char separator) const {
    return region ? language + separator + *region : language;
  }
};

bool allOf(std::string_view text, int (*isOfKind)(int)) {
  return std::all_of(text.begin(), text.end(),
                     [&](unsigned char character) { return isOfKind(character) != 0; });
}

// language[_REGION][.codeset][@modifier]
std::optional<Name> parse(std::string_view text) {
  text = text.substr(0, text.find_first_of(".@"));
  const auto language = text.substr(0, text.find('_'));
  if (language.size() < 2 || language.size() > 8 || !allOf(language, std::isalpha) ||
      language == "POSIX")
    return std::nullopt;
  Name name{std::string(language), std::nullopt};
  if (language.size() == text.size()) return name;
  const auto region = text.substr(language.size() + 1);
  if (region.size() < 2 || region.size() > 3 || !allOf(region, std::isalnum)) return std::nullopt;
  name.region = std::string(region);
  return name;
}

std::optional<Name> firstNamed(const Environment& environment) {
  for (const auto* variable : {"LC_ALL", "LC_MESSAGES", "LANG"})
    if (const auto value = environment(variable)) return parse(*value);
  return std::nullopt;
}

std::vector<std::string> languagesIn(std::string_view list) {
  std::vector<std::string> languages;
  while (!list.empty()) {
    const auto end = std::min(list.find(':'), list.size());
    if (const auto name = parse(list.substr(0, end))) languages.push_back(name->joined('-'));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return languages;
}

}  // namespace

Locale localeFrom(const Environment& environment) {
  const auto name = firstNamed(environment).value_or(Name{"en", std::nullopt});
  auto languages = languagesIn(environment("LANGUAGE").value_or(""));
  if (languages.empty()) languages.push_back(name.joined('-'));
  return {.identifier = name.joined('_'),
          .regionCode = name.region,
          .preferredLanguages = std::move(languages)};
}

}  // namespace kite::Linux
