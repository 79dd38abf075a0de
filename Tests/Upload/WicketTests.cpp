#include "Upload/Wicket.h"

#include "Support/CatchFatalErrors.h"

#include <gmock/gmock.h>

#include <limits>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::Pair;

constexpr const char* tooLate = "The time of a request does not fit into 64-bit milliseconds";

std::shared_ptr<const Data> bytes(std::string text) {
  return std::make_shared<const Data>(Data{std::move(text)});
}

Wicket::Arguments aRequest() {
  return {.url = *URL::parse("https://a.test/v4/events"),
          .body = nullptr,
          .now = {1'700'000'000.1239},
          .requestId = *UUID::parse("00000000-0000-4000-8000-0000000000ab"),
          .secret = "secret",
          .wicketProtocol = Wicket::Protocol::sha512};
}

std::string timestampOf(double seconds) {
  auto request = aRequest();
  request.now = {seconds};
  return Wicket::computeHeaders(request).at("Wicket-Timestamp");
}

// The expected codes below were worked out with another implementation, over for instance
// "http://a.test/v4/events::1700000000123:00000000-0000-4000-8000-0000000000AB".

TEST(WicketTests, anAbsentBodyLeavesTwoColonsSideBySide) {
  EXPECT_EQ(Wicket::signature(aRequest()),
            "cca70334e1177e9878ffb5d14cc97cb2ae38b3e0aad0399eace220b28080ed76"
            "81f29fa32e51cf4c5f29127c272951f96c71d5b5242af077dab21f0cc74dd3fe");
}

TEST(WicketTests, anEmptyBodyIsSignedLikeAnAbsentOne) {
  auto request = aRequest();
  request.body = bytes("");
  EXPECT_EQ(Wicket::signature(request), Wicket::signature(aRequest()));
}

TEST(WicketTests, signsTheHexadecimalTextOfTheBody) {
  auto request = aRequest();
  request.url = *URL::parse("https://a.test/v4/events?next=https://b.test");
  request.body = bytes(std::string("\x00\x01\x7F\x80\xFF", 5) + "kite");
  request.secret =
      "s\xC3\xA9"
      "cret";
  EXPECT_EQ(Wicket::signature(request),
            "3c13698ee98942bac788c7fb04a1a4b5e7e50173d9b1c23902820b131cfcc545"
            "89a61492a99fae1c9c90f2c3818762abcc293cc4445d113fe0af336b818d3c6b");
  request.wicketProtocol = Wicket::Protocol::sha256;
  EXPECT_EQ(Wicket::signature(request),
            "3295fb87fcc26c15098eb8b332e59ca9e22c2b02558981cf2dbf251981c96d40");
}

TEST(WicketTests, signsALongBody) {
  std::string body;
  for (int i = 0; i < 10'000; ++i) body.push_back(static_cast<char>((i * 7 + 3) % 256));
  auto request = aRequest();
  request.body = bytes(body);
  EXPECT_EQ(Wicket::signature(request),
            "37cba48a99ddf4634217d69e1d0aaa094485cba9770fe28133dcda79616a7fe4"
            "503bf302015cb7913badf0a1f1f0f38902b737c3d0ddfbbfa4f4703e11effa29");
}

TEST(WicketTests, aSecureURLIsSignedAsIfItWereNot) {
  auto plain = aRequest();
  plain.url = *URL::parse("http://a.test/v4/events");
  EXPECT_EQ(Wicket::signature(plain), Wicket::signature(aRequest()));
}

TEST(WicketTests, everySecureURLWithinAURLIsSignedAsIfItWereNot) {
  auto secure = aRequest();
  secure.url = *URL::parse("https://a.test/https://https://b.test?next=https://c.test");
  auto plain = aRequest();
  plain.url = *URL::parse("http://a.test/http://http://b.test?next=http://c.test");
  EXPECT_EQ(Wicket::signature(secure), Wicket::signature(plain));
}

TEST(WicketTests, theRestOfTheURLCounts) {
  auto other = aRequest();
  other.url = *URL::parse("https://b.test/v4/events");
  EXPECT_NE(Wicket::signature(other), Wicket::signature(aRequest()));
}

TEST(WicketTests, requestsOfOneMomentDifferByTheirIdentifier) {
  auto other = aRequest();
  other.requestId = *UUID::parse("00000000-0000-4000-8000-0000000000ac");
  EXPECT_NE(Wicket::signature(other), Wicket::signature(aRequest()));
}

TEST(WicketTests, aSecretThatIsNotUTF8GivesNoSignature) {
  auto request = aRequest();
  request.secret = "s\xFF";
  EXPECT_EQ(Wicket::signature(request), "");
}

TEST(WicketTests, anEmptySecretSignsAllTheSame) {
  auto request = aRequest();
  request.secret = "";
  EXPECT_EQ(Wicket::signature(request).size(), 128U);
}

TEST(WicketTests, theHeadersAreFour) {
  EXPECT_THAT(Wicket::computeHeaders(aRequest()),
              ElementsAre(Pair("Wicket-Protocol", "Sha512"),
                          Pair("Wicket-Request-Id", "00000000-0000-4000-8000-0000000000AB"),
                          Pair("Wicket-Signature", Wicket::signature(aRequest())),
                          Pair("Wicket-Timestamp", "1700000000123")));
}

TEST(WicketTests, theOtherProtocolNamesItself) {
  auto request = aRequest();
  request.wicketProtocol = Wicket::Protocol::sha256;
  EXPECT_EQ(Wicket::computeHeaders(request).at("Wicket-Protocol"), "Sha256");
}

TEST(WicketTests, millisecondsAreCutOffTowardsZero) {
  EXPECT_EQ(timestampOf(1.0019), "1001");
  EXPECT_EQ(timestampOf(0.0009), "0");
  EXPECT_EQ(timestampOf(-0.0009), "0");
  EXPECT_EQ(timestampOf(-1.0019), "-1001");
  EXPECT_EQ(timestampOf(-9.2e15), "-9200000000000000000");
}

TEST(WicketTests, aTimeThatDoesNotFitStopsTheProcess) {
  EXPECT_FATAL(timestampOf(9.3e15), tooLate);
  EXPECT_FATAL(timestampOf(-9.3e15), tooLate);
  EXPECT_FATAL(timestampOf(std::numeric_limits<double>::infinity()), tooLate);
  EXPECT_FATAL(timestampOf(std::numeric_limits<double>::quiet_NaN()), tooLate);
  auto request = aRequest();
  request.now = {std::numeric_limits<double>::infinity()};
  EXPECT_FATAL(Wicket::signature(request), tooLate);
}

}  // namespace
}  // namespace kite::test
