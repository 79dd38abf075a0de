#include "Linux/Storage/Seal.h"

#include <gtest/gtest.h>

#include <string>

namespace kite::Linux {
namespace {

class SealTests : public testing::Test {
 protected:
  std::shared_ptr<const MasterKey> key = MasterKey::fromBytes(std::string(32, 'k'));
};

TEST_F(SealTests, opensWhatItSealed) {
  for (const std::string text : {"", "a", "a longer text that fills more than one block"})
    EXPECT_EQ(unseal(*key, "name", *seal(*key, "name", text)), text);
}

TEST_F(SealTests, hidesTheText) {
  EXPECT_EQ(seal(*key, "name", "visible")->find("visible"), std::string::npos);
}

TEST_F(SealTests, neverSealsTwiceAlike) {
  EXPECT_NE(seal(*key, "name", "text"), seal(*key, "name", "text"));
}

TEST_F(SealTests, opensForTheSameNameOnly) {
  EXPECT_EQ(unseal(*key, "other", *seal(*key, "name", "text")), std::nullopt);
}

TEST_F(SealTests, opensWithTheSameKeyOnly) {
  std::string bytes(32, 'k');
  bytes.back() = 'l';
  const auto other = MasterKey::fromBytes(bytes);
  EXPECT_EQ(unseal(*other, "name", *seal(*key, "name", "text")), std::nullopt);
}

TEST_F(SealTests, noticesAnyChangedByte) {
  const auto sealed = *seal(*key, "name", "text");
  for (std::size_t place = 0; place < sealed.size(); ++place) {
    auto changed = sealed;
    changed[place] = static_cast<char>(changed[place] ^ 1);
    EXPECT_EQ(unseal(*key, "name", changed), std::nullopt) << place;
  }
}

TEST_F(SealTests, noticesMissingAndAddedBytes) {
  const auto sealed = *seal(*key, "name", "text");
  for (std::size_t size = 0; size < sealed.size(); ++size)
    EXPECT_EQ(unseal(*key, "name", sealed.substr(0, size)), std::nullopt) << size;
  EXPECT_EQ(unseal(*key, "name", sealed + '\0'), std::nullopt);
}

TEST(MasterKeyTests, hasThirtyTwoBytes) {
  EXPECT_EQ(MasterKey::fromBytes(std::string(31, 'k')), nullptr);
  EXPECT_EQ(MasterKey::fromBytes(std::string(33, 'k')), nullptr);
  EXPECT_EQ(MasterKey::random()->bytes().size(), 32u);
}

TEST(MasterKeyTests, isAnotherEachTime) {
  EXPECT_NE(MasterKey::random()->bytes(), MasterKey::random()->bytes());
}

}  // namespace
}  // namespace kite::Linux
