#include "JSON/UTF8.h"

#include "JSON/RandomJSON.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

std::string repaired(std::string_view text) { return repairedUTF8(text); }

TEST(UTF8, keepsWellFormedTextAsItIs) {
  for (const std::string text :
       {"", "plain", "\x7F", "é", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "€", "\xED\x9F\xBF",
        "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "𝄞", "\xF4\x8F\xBF\xBF"})
    EXPECT_EQ(repaired(text), text);
  EXPECT_EQ(repaired(std::string_view("a\0b", 3)), std::string("a\0b", 3));
}

TEST(UTF8, replacesAStrayByte) {
  EXPECT_EQ(repaired("a\x80"
                     "b"),
            "a\uFFFDb");
  EXPECT_EQ(repaired("\xFF\xFE"), "\uFFFD\uFFFD");
  EXPECT_EQ(repaired("\xC0\xAF"), "\uFFFD\uFFFD");
  EXPECT_EQ(repaired("\xC1\xBF"), "\uFFFD\uFFFD");
  EXPECT_EQ(repaired("\xF5\x80\x80\x80"), "\uFFFD\uFFFD\uFFFD\uFFFD");
}

TEST(UTF8, replacesACharacterThatBreaksOffOnce) {
  EXPECT_EQ(repaired("\xE2\x82"), "\uFFFD");
  EXPECT_EQ(repaired("\xF0\x9F\x92"), "\uFFFD");
  EXPECT_EQ(repaired("\xE2\x82x"), "\uFFFDx");
  EXPECT_EQ(repaired("\xF1\x80\x80\xE2\x82\xAC"), "\uFFFD€");
  EXPECT_EQ(repaired("\xC3"), "\uFFFD");
}

TEST(UTF8, replacesEachByteOfASurrogateOrOverlongForm) {
  EXPECT_EQ(repaired("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(repaired("\xE0\x80\xAF"), "\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(repaired("\xF0\x80\x80\xAF"), "\uFFFD\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(repaired("\xF4\x90\x80\x80"), "\uFFFD\uFFFD\uFFFD\uFFFD");
}

TEST(UTF8, replacesMaximalPartsAsTheUnicodeStandardsExampleShows) {
  EXPECT_EQ(repaired("\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64"),
            "a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd");
}

TEST(UTF8, findsAFaultAtAnyPlaceInTextOfAnyLength) {
  for (std::size_t length = 1; length < 80; ++length) {
    const std::string clean(length, 'x');
    ASSERT_EQ(repaired(clean), clean);
    for (std::size_t at = 0; at < length; ++at) {
      std::string faulty = clean;
      faulty[at] = '\x80';
      ASSERT_EQ(repaired(faulty), clean.substr(0, at) + "\uFFFD" + clean.substr(at + 1));
    }
  }
}

TEST(UTF8, movesWellFormedTextThrough) {
  std::string text(100, 'x');
  const char* const bytes = text.data();
  EXPECT_EQ(repairedUTF8(std::move(text)).data(), bytes);
}

TEST(UTF8, isWellFormedAfterRepairWhateverItWas) {
  RandomJSON random(1);
  for (int round = 0; round < 5000; ++round) {
    const auto once = repairedUTF8(random.bytes(random.below(40)));
    ASSERT_TRUE(isUTF8(once));
    ASSERT_EQ(repairedUTF8(once), once);
  }
}

TEST(UTF8, isRepairedBetweenASCIICharactersIndependently) {
  RandomJSON random(2);
  for (int round = 0; round < 5000; ++round) {
    const auto a = random.bytes(random.below(9));
    const auto b = random.bytes(random.below(9));
    ASSERT_EQ(repairedUTF8(a + "|" + b), repairedUTF8(a) + "|" + repairedUTF8(b));
  }
}

}  // namespace
}  // namespace kite::test
