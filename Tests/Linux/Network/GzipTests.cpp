#include <Kite/Platform/Gzip.h>

#include "Support/Gunzip.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <string>

namespace kite::test {
namespace {

std::string compressed(std::string_view text, int level = defaultGzipLevel) {
  const auto result = gzipped(text, level);
  EXPECT_TRUE(result);
  return result ? result->bytes : "";
}

/// What zlib makes of a text at its default level.
std::size_t sizeByZlib(const std::string& text) {
  z_stream stream{};
  constexpr int gzipWrapper = 16, defaultMemoryLevel = 8;
  deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, MAX_WBITS + gzipWrapper,
               defaultMemoryLevel, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  deflateEnd(&stream);
  return stream.total_out;
}

/// Numbers without end that do not repeat.
class Numbers {
 public:
  std::string next() { return std::to_string((_state = _state * 1664525U + 1013904223U) >> 8); }

 private:
  std::uint32_t _state = 1;
};

/// Text that does not compress to almost nothing.
std::string longText() {
  Numbers numbers;
  std::string text;
  while (text.size() < 100'000) text += numbers.next();
  return text;
}

/// As events are: the same keys, and values some of which change.
std::string body() {
  Numbers numbers;
  std::string text = R"({"delta":0.5,"last_event_timestamp":1.5,"events":[)";
  for (int i = 0; i < 500; ++i)
    text +=
        R"({"type":"UserAction","id":")" + numbers.next() + numbers.next() +
        R"(","timestamp":1765432200.)" + numbers.next() +
        R"(,"app":"trail-maps","user":{"info":{"language":"en","plan":"free","device":"a"},"ids":{}},)" +
        R"("data":{"action_kind":"buy","action_info":{"price":)" + numbers.next() +
        R"(,"currency":"EUR","items":3},"session_id":"8FD2A3C0"}},)";
  return text + "]}";
}

TEST(GzipTests, whatItCompressesUnpacksToTheSame) {
  EXPECT_EQ(gunzip(compressed("kite kite kite")), "kite kite kite");
  EXPECT_EQ(gunzip(compressed(longText())), longText());
  EXPECT_EQ(gunzip(compressed("")), "");
}

TEST(GzipTests, writesTheGzipFormat) { EXPECT_EQ(compressed("kite").substr(0, 3), "\x1F\x8B\x08"); }

TEST(GzipTests, theDefaultLevelIsAsSmallAsZlibs) {
  EXPECT_EQ(defaultGzipLevel, Z_DEFAULT_COMPRESSION);
  EXPECT_LE(compressed(body()).size(), sizeByZlib(body()));
}

TEST(GzipTests, higherLevelsAreSmaller) {
  EXPECT_LT(compressed(body(), 9).size(), compressed(body(), 1).size());
  EXPECT_EQ(gunzip(compressed(body(), 9)), body());
}

TEST(GzipTests, aLevelThatThereIsNotIsAnErrorWithAMessage) {
  for (const int level : {-2, 0, 10}) {
    const auto result = gzipped("kite", level);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error(), GzipError{"there is no level " + std::to_string(level)});
  }
}

}  // namespace
}  // namespace kite::test
