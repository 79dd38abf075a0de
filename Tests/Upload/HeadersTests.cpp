#include "Upload/Headers.h"

#include "Upload/Wicket.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::Pair;

ComputeHeadersArguments anUpload() {
  return {.from = std::nullopt,
          .clientId = "client-7",
          .isTestEnvironment = false,
          .lumoID = "trail-maps",
          .version = "7.3.0",
          .url = *URL::parse("https://a.test/v4/events"),
          .body = std::make_shared<const Data>(Data{"body"}),
          .secret = "secret",
          .wicketUUID = *UUID::parse("00000000-0000-4000-8000-0000000000AB"),
          .now = {1'700'000'000.5}};
}

std::string signatureOfAnUpload() {
  const auto upload = anUpload();
  return Wicket::signature({.url = upload.url,
                            .body = upload.body,
                            .now = upload.now,
                            .requestId = upload.wicketUUID,
                            .secret = upload.secret,
                            .wicketProtocol = Wicket::Protocol::sha512});
}

TEST(HeadersTests, areTheseTenAndNoOther) {
  EXPECT_THAT(
      computeHeaders(anUpload()),
      ElementsAre(Pair("Content-Encoding", "gzip"), Pair("Content-Type", "application/json"),
                  Pair("Kite-Client-ID", "client-7"), Pair("Kite-Tester", "false"),
                  Pair("Kite-Version", "7.3.0"), Pair("Lumo-Id", "trail-maps"),
                  Pair("Wicket-Protocol", "Sha512"),
                  Pair("Wicket-Request-Id", "00000000-0000-4000-8000-0000000000AB"),
                  Pair("Wicket-Signature", signatureOfAnUpload()),
                  Pair("Wicket-Timestamp", "1700000000500")));
}

TEST(HeadersTests, aTesterIsSaidToBeOneInLowerCase) {
  auto upload = anUpload();
  upload.isTestEnvironment = true;
  EXPECT_EQ(computeHeaders(upload).at("Kite-Tester"), "true");
}

TEST(HeadersTests, replaceWhatTheRequestHasUnderTheSameName) {
  auto upload = anUpload();
  upload.from = computeHeaders(upload);
  for (auto& [name, value] : *upload.from) value = "earlier";
  EXPECT_EQ(computeHeaders(upload), computeHeaders(anUpload()));
}

TEST(HeadersTests, keepWhatTheRequestHasUnderOtherNames) {
  auto upload = anUpload();
  upload.from = HeaderFields{{"Accept", "*/*"}, {"content-type", "text/plain"}};
  const auto headers = computeHeaders(upload);
  EXPECT_EQ(headers.size(), 12U);
  EXPECT_EQ(headers.at("Accept"), "*/*");
  EXPECT_EQ(headers.at("content-type"), "text/plain");
  EXPECT_EQ(headers.at("Content-Type"), "application/json");
}

}  // namespace
}  // namespace kite::test
