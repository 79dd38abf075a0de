#include "Report/PrintedText.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include <cstdlib>
#include <map>
#include <optional>

namespace kite::tool {
namespace {

/// Gives the process an environment with those locales, until the end of the test.
class LocaleNames {
 public:
  explicit LocaleNames(const std::map<std::string, std::string>& names) {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
      const char* value = std::getenv(name);
      _before[name] = value ? std::optional<std::string>(value) : std::nullopt;
      ::unsetenv(name);
    }
    for (const auto& [name, value] : names) ::setenv(name.c_str(), value.c_str(), 1);
  }
  ~LocaleNames() {
    for (const auto& [name, value] : _before) {
      value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }
  }
  LocaleNames(const LocaleNames&) = delete;
  LocaleNames& operator=(const LocaleNames&) = delete;

 private:
  std::map<std::string, std::optional<std::string>> _before;
};

Letters lettersWith(const std::map<std::string, std::string>& names) {
  const LocaleNames environment(names);
  return lettersOfLocale();
}

TEST(PrintedText, isPlainUnlessTheLocaleIsOfUnicode) {
  EXPECT_EQ(lettersWith({}), Letters::ascii);
  EXPECT_EQ(lettersWith({{"LANG", "C"}}), Letters::ascii);
  EXPECT_EQ(lettersWith({{"LANG", "en_NZ.UTF-8"}}), Letters::unicode);
  EXPECT_EQ(lettersWith({{"LANG", "C"}, {"LC_CTYPE", "C.utf8"}}), Letters::unicode);
  EXPECT_EQ(lettersWith({{"LANG", "\xC4_\xFF.Utf-8"}}), Letters::unicode);
  EXPECT_EQ(lettersWith({{"LANG", "en_NZ.UTF-8"}, {"LC_ALL", "POSIX"}}), Letters::ascii);
  EXPECT_EQ(lettersWith({{"LANG", "en_NZ.UTF-8"}, {"LC_ALL", ""}}), Letters::unicode);
}

TEST(PrintedText, isCutWithAnEllipsis) {
  EXPECT_EQ(printable("12345678", Letters::unicode, 8), "12345678");
  EXPECT_EQ(printable("123456789", Letters::unicode, 8), "1234567…");
  EXPECT_EQ(printable("123456789", Letters::ascii, 8), "12345...");
}

TEST(PrintedText, countsColumnsAndNotBytes) {
  EXPECT_EQ(columnsOf("né"), 2);
  EXPECT_EQ(columnsOf("ne\u0301"), 2);
  EXPECT_EQ(columnsOf("日本"), 4);
  EXPECT_EQ(columnsOf("🙂"), 2);
  EXPECT_EQ(printable("日本語日本語", Letters::unicode, 7), "日本語…");
  EXPECT_EQ(printable("日本語日本語", Letters::unicode, 8), "日本語…");
}

TEST(PrintedText, doesNotGrowWithoutEndByLettersOfNoWidth) {
  std::string tower = "a";
  for (int i = 0; i < 10'000; ++i) tower += "\u0301";
  EXPECT_LT(printable(tower, Letters::unicode, 10).size(), 100U);
}

TEST(PrintedText, hasNothingThatControlsATerminal) {
  EXPECT_EQ(printable("a\x1b\x9bz\u202E", Letters::unicode, 20), "a\uFFFD\uFFFDz\uFFFD");
  EXPECT_EQ(printable(std::string("a\0\x7F\u0085\u202E\u200Fz", 12), Letters::ascii, 20),
            "a?????z");
  EXPECT_EQ(printable("caf\u00E9", Letters::ascii, 20), "caf?");
}

TEST(PrintedText, hasNothingThatXMLForbids) {
  EXPECT_EQ(printable("a\uFFFE\uFFFFz\uFFFD", Letters::unicode, 20), "a\uFFFD\uFFFDz\uFFFD");
}

TEST(PrintedText, hasBarsAsLongAsTheirShare) {
  EXPECT_EQ(bar(1, Letters::unicode, 4), "████");
  EXPECT_EQ(bar(0.5, Letters::unicode, 4), "██");
  EXPECT_EQ(bar(0.125, Letters::unicode, 4), "▌");
  EXPECT_EQ(bar(0.0001, Letters::unicode, 4), "▏");
  EXPECT_EQ(bar(0, Letters::unicode, 4), "");
  EXPECT_EQ(bar(0.5, Letters::ascii, 4), "##");
  EXPECT_EQ(bar(0.0001, Letters::ascii, 4), "#");
  EXPECT_EQ(bar(7, Letters::ascii, 4), "####");
}

}  // namespace
}  // namespace kite::tool
