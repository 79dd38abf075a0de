#include "Upload/Gzip.h"

#include "Support/Gunzip.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

std::string compressed(std::string_view text, int level = Gzip::defaultLevel) {
  const auto gzip = Gzip::zlib(level);
  gzip->write(text);
  const auto result = gzip->finish();
  EXPECT_TRUE(result);
  return result ? result->bytes : "";
}

/// Text that does not compress to almost nothing.
std::string longText() {
  std::string text;
  std::uint32_t state = 1;
  while (text.size() < 100'000) {
    state = state * 1664525U + 1013904223U;
    text += std::to_string(state >> 8);
  }
  return text;
}

TEST(GzipTests, whatItCompressesUnpacksToTheSame) {
  EXPECT_EQ(gunzip(compressed("kite kite kite")), "kite kite kite");
  EXPECT_EQ(gunzip(compressed(longText())), longText());
}

TEST(GzipTests, nothingUnpacksToNothing) {
  EXPECT_EQ(gunzip(compressed("")), "");
  const auto untouched = Gzip::zlib(Gzip::defaultLevel)->finish();
  ASSERT_TRUE(untouched);
  EXPECT_EQ(gunzip(untouched->bytes), "");
}

TEST(GzipTests, writesTheGzipFormat) {
  const auto bytes = compressed("kite");
  EXPECT_EQ(bytes.substr(0, 3), "\x1F\x8B\x08");
}

TEST(GzipTests, piecesMakeOneStream) {
  const auto gzip = Gzip::zlib(Gzip::defaultLevel);
  const std::string text = longText();
  for (std::size_t at = 0; at < text.size(); at += 30'001)
    gzip->write(std::string_view(text).substr(at, 30'001));
  gzip->write("");
  const auto result = gzip->finish();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->bytes, compressed(text));
}

TEST(GzipTests, theDefaultLevelIsZlibsOwn) {
  EXPECT_EQ(Gzip::defaultLevel, Z_DEFAULT_COMPRESSION);
  EXPECT_EQ(compressed(longText()), compressed(longText(), 6));
  EXPECT_NE(compressed(longText()), compressed(longText(), 1));
}

TEST(GzipTests, aLevelThatZlibDoesNotHaveIsAnErrorWithAMessage) {
  const auto gzip = Gzip::zlib(10);
  gzip->write("kite");
  const auto result = gzip->finish();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error(), GzipError{"stream error"});
}

}  // namespace
}  // namespace kite::test
