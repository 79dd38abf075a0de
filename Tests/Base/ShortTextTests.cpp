#include "Base/ShortText.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace kite::test {
namespace {

TEST(ShortTextTests, keepsTextsOfAnyLength) {
  for (const std::size_t size : {0UL, 1UL, 38UL, 39UL, 40UL, 1000UL}) {
    const std::string text(size, 'a');
    EXPECT_EQ(ShortText(text).view(), text);
  }
}

TEST(ShortTextTests, keepsBytesOfAnyKind) {
  const std::string_view text("a\0b\xFF", 4);
  EXPECT_EQ(ShortText(text).view(), text);
}

TEST(ShortTextTests, aLongTextThatWasMovedAwayLeavesNothing) {
  ShortText text(std::string(1000, 'a'));
  const ShortText moved = std::move(text);
  EXPECT_EQ(text.view(), "");
}

TEST(ShortTextTests, isCopiedMovedAndCompared) {
  for (const std::size_t size : {ShortText::mostInPlace, ShortText::mostInPlace + 1}) {
    const ShortText text(std::string(size, 'a'));
    ShortText copy = text;
    EXPECT_EQ(copy, text);
    const ShortText moved = std::move(copy);
    EXPECT_EQ(moved, text);
    copy = text;
    EXPECT_EQ(copy, text);
    EXPECT_FALSE(ShortText(std::string(size, 'b')) == text);
    EXPECT_FALSE(ShortText(std::string(size - 1, 'a')) == text);
  }
}

}  // namespace
}  // namespace kite::test
