#include "Collector/Checks/Signature.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kite::test {
namespace {

using ::testing::Ne;
using ::testing::Optional;
using tool::isSameSignature;
using tool::signatureOf;
using tool::SignedParts;

// The expected texts were computed with another implementation of HMAC.
constexpr SignedParts parts{.host = "127.0.0.1:8443",
                            .target = "/v4/events",
                            .body =
                                "\x1F\x8B"
                                "abc",
                            .timestamp = "1765432200250",
                            .requestID = "6F8852B6-5A4E-484B-99BD-0A8A6674FD93"};

TEST(CollectorSignature, isAnHMACOverUrlBodyTimestampAndIDInLowerCaseHexadecimal) {
  EXPECT_EQ(signatureOf(parts, "Sha512", "secret"),
            "4041174423f9fb0219fc01b3f5992f67fdbf4d8fe11b9a0d5de4e89f56c755e5"
            "b0092e6029d4eebb2d82da8fd91ae7c32c961209ec419c67c9054b955343549d");
}

TEST(CollectorSignature, knowsTheShorterHashToo) {
  EXPECT_EQ(signatureOf(parts, "Sha256", "secret"),
            "ddf766bd038475b2a2b88f4b5a34d5b32dec863dbdfd753e7010fec1605883bc");
}

TEST(CollectorSignature, isMissingForAnUnknownProtocol) {
  EXPECT_EQ(signatureOf(parts, "Sha1", "secret"), std::nullopt);
  EXPECT_EQ(signatureOf(parts, "sha512", "secret"), std::nullopt);
}

TEST(CollectorSignature, takesTheSchemeInAQueryForThePlainOneToo) {
  SignedParts asked = parts;
  asked.host = "h";
  asked.target = "/v4/events?to=https://x";
  EXPECT_EQ(signatureOf(asked, "Sha256", "secret"),
            "65f596181127b4b5d4579f345db73262f13d51088846ee0a6b2728cd548ca7c1");
}

TEST(CollectorSignature, dependsOnTheKey) {
  EXPECT_THAT(signatureOf(parts, "Sha512", "Secret"),
              Optional(Ne(*signatureOf(parts, "Sha512", "secret"))));
}

TEST(CollectorSignature, isComparedWhole) {
  EXPECT_TRUE(isSameSignature("abc", "abc"));
  EXPECT_FALSE(isSameSignature("abc", "abd"));
  EXPECT_FALSE(isSameSignature("abc", "ab"));
  EXPECT_FALSE(isSameSignature("ab", "abc"));
}

}  // namespace
}  // namespace kite::test
