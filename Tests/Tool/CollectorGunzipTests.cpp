#include "Collector/Checks/Gunzip.h"

#include "CollectorRequests.h"

namespace kite::test {
namespace {

using tool::gunzip;

constexpr std::size_t plenty = 1'000'000;

std::string failureOf(std::string_view bytes, std::size_t limit = plenty) {
  const auto text = gunzip(bytes, limit);
  return text ? "" : text.error();
}

TEST(CollectorGunzip, unpacksOneStream) { EXPECT_EQ(*gunzip(gzipped("hello"), plenty), "hello"); }

TEST(CollectorGunzip, unpacksMoreThanOneStepOfItsBuffer) {
  std::string text;
  for (int number = 0; number < 100'000; ++number) text += std::to_string(number);
  EXPECT_EQ(*gunzip(gzipped(text), plenty), text);
}

TEST(CollectorGunzip, unpacksUpToTheLimit) {
  const std::string text(100'000, ' ');
  EXPECT_EQ(*gunzip(gzipped(text), text.size()), text);
  EXPECT_EQ(failureOf(gzipped(text), text.size() - 1), "inflates to more than 99999 bytes");
}

TEST(CollectorGunzip, refusesWhatIsNotGzip) {
  EXPECT_EQ(failureOf("{\"events\":[]}"), "not a gzip stream");
}

TEST(CollectorGunzip, refusesAZlibStream) {
  EXPECT_EQ(failureOf("\x78\x9C\xCB\x48\xCD\xC9\xC9\x07"), "not a gzip stream");
}

TEST(CollectorGunzip, refusesAnEmptyBody) {
  EXPECT_EQ(failureOf(""), "the gzip stream ends early");
}

TEST(CollectorGunzip, refusesAStreamCutShort) {
  const std::string bytes = gzipped("hello");
  for (std::size_t size = 1; size < bytes.size(); ++size) {
    EXPECT_EQ(failureOf(bytes.substr(0, size)), "the gzip stream ends early") << size;
  }
}

TEST(CollectorGunzip, refusesAWrongChecksum) {
  std::string bytes = gzipped("hello");
  auto& checksum = bytes[bytes.size() - 8];
  checksum = static_cast<char>(checksum ^ 1);
  EXPECT_EQ(failureOf(bytes), "not a gzip stream");
}

TEST(CollectorGunzip, refusesBytesBehindTheStream) {
  EXPECT_EQ(failureOf(gzipped("hello") + "x"), "bytes follow the gzip stream");
}

TEST(CollectorGunzip, refusesASecondStream) {
  EXPECT_EQ(failureOf(gzipped("hello") + gzipped("again")), "bytes follow the gzip stream");
}

}  // namespace
}  // namespace kite::test
