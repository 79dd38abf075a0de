#include <Kite/Base/UUID.h>

#include <gtest/gtest.h>

namespace kite::test {
namespace {

constexpr UUID sample{{0x0D, 0x8E, 0x2A, 0x44, 0x3B, 0x19, 0x4E, 0x63, 0xA2, 0xF7, 0x91, 0xC5, 0xD7,
                       0xB3, 0xE8, 0x02}};

TEST(UUID, isWrittenInUpperCaseWithHyphens) {
  EXPECT_EQ(sample.text(), "0D8E2A44-3B19-4E63-A2F7-91C5D7B3E802");
  EXPECT_EQ(UUID{}.text(), "00000000-0000-0000-0000-000000000000");
}

TEST(UUID, isReadInEitherCase) {
  EXPECT_EQ(UUID::parse("0D8E2A44-3B19-4E63-A2F7-91C5D7B3E802"), sample);
  EXPECT_EQ(UUID::parse("0d8e2a44-3b19-4e63-a2f7-91c5d7b3e802"), sample);
}

TEST(UUID, isNotReadWithAHyphenMissingOrMisplaced) {
  EXPECT_FALSE(UUID::parse("0D8E2A443B194E63A2F791C5D7B3E802"));
  EXPECT_FALSE(UUID::parse("0D8E2A4-43B19-4E63-A2F7-91C5D7B3E802"));
  EXPECT_FALSE(UUID::parse("0D8E2A4403B1904E630A2F7091C5D7B3E802"));
}

TEST(UUID, isNotReadFromTextOfAnotherLength) {
  EXPECT_FALSE(UUID::parse(""));
  EXPECT_FALSE(UUID::parse("0D8E2A44-3B19-4E63-A2F7-91C5D7B3E80"));
  EXPECT_FALSE(UUID::parse("0D8E2A44-3B19-4E63-A2F7-91C5D7B3E8020"));
  EXPECT_FALSE(UUID::parse("{0D8E2A44-3B19-4E63-A2F7-91C5D7B3E802}"));
}

TEST(UUID, isNotReadFromOtherCharacters) {
  const auto text = sample.text();
  for (std::size_t position = 0; position < text.size(); ++position) {
    for (const char wrong : {'G', 'g', '@', '`', '/', ':', ' ', '\0', '\xFF'}) {
      std::string changed = text;
      changed[position] = wrong;
      EXPECT_FALSE(UUID::parse(changed)) << changed;
    }
  }
}

TEST(UUID, hasOnePlaceholderThatIsWrittenInUpperCase) {
  EXPECT_EQ(UUID::noop().text(), "123E4567-E89B-12D3-A456-426614174000");
  EXPECT_EQ(&UUID::noop(), &UUID::noop());
}

TEST(UUID, isOrderedByItsBytes) {
  EXPECT_LT(*UUID::parse("00000000-0000-0000-0000-0000000000FF"),
            *UUID::parse("01000000-0000-0000-0000-000000000000"));
}

}  // namespace
}  // namespace kite::test
