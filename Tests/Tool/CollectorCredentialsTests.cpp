#include "Collector/Checks/Credentials.h"

#include "CollectorRequests.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using ::testing::TestWithParam;
using ::testing::Values;
using tool::authenticate;
using tool::ReceivedRequest;
using tool::Refusal;

Refusal credentialsRefusal(const ReceivedRequest& request, double at = now) {
  const auto sender = authenticate(request, key, at);
  EXPECT_FALSE(sender) << "the request was taken for good";
  return sender ? Refusal{0, 0, ""} : sender.error();
}

/// A good request but for one header, signed with the value that it has.
ReceivedRequest requestWith(std::string_view name, const std::string& value) {
  ReceivedRequest request = aRequest("{}");
  header(request, name).value = value;
  if (name != "Wicket-Signature") sign(request);
  return request;
}

TEST(CollectorCredentials, nameTheSender) {
  const auto sender = authenticate(aRequest("{}"), key, now);
  ASSERT_TRUE(sender);
  EXPECT_EQ(sender->requestID, aRequestID);
  EXPECT_EQ(sender->app, "trail-maps");
  EXPECT_EQ(sender->clientID, "client-1");
  EXPECT_TRUE(sender->isTester);
}

TEST(CollectorCredentials, tellTestersFromUsers) {
  const auto sender = authenticate(requestWith("Kite-Tester", "false"), key, now);
  ASSERT_TRUE(sender);
  EXPECT_FALSE(sender->isTester);
}

TEST(CollectorCredentials, mayBeSignedWithTheShorterHash) {
  EXPECT_TRUE(authenticate(requestWith("Wicket-Protocol", "Sha256"), key, now));
}

TEST(CollectorCredentials, areFoundUnderNamesOfAnyCase) {
  ReceivedRequest request = aRequest("{}");
  header(request, "Lumo-Id").name = "lumo-id";
  EXPECT_TRUE(authenticate(request, key, now));
}

class CollectorRequiredHeaders : public TestWithParam<const char*> {};

TEST_P(CollectorRequiredHeaders, areMissedWhenAbsent) {
  ReceivedRequest request = aRequest("{}");
  std::erase_if(request.headers, [](const auto& each) { return each.name == GetParam(); });
  EXPECT_EQ(credentialsRefusal(request),
            (Refusal{422, 100, "the header " + std::string(GetParam()) + " is missing"}));
}

TEST_P(CollectorRequiredHeaders, areMissedWhenEmpty) {
  ReceivedRequest request = aRequest("{}");
  header(request, GetParam()).value = "";
  EXPECT_EQ(credentialsRefusal(request),
            (Refusal{422, 100, "the header " + std::string(GetParam()) + " is missing"}));
}

TEST_P(CollectorRequiredHeaders, mustNotBeRepeated) {
  ReceivedRequest request = aRequest("{}");
  request.headers.push_back(header(request, GetParam()));
  EXPECT_EQ(credentialsRefusal(request),
            (Refusal{422, 102, "the header " + std::string(GetParam()) + " is repeated"}));
}

INSTANTIATE_TEST_SUITE_P(All, CollectorRequiredHeaders,
                         Values("Host", "Content-Type", "Content-Encoding", "Lumo-Id",
                                "Kite-Client-ID", "Kite-Tester", "Kite-Version", "Wicket-Protocol",
                                "Wicket-Timestamp", "Wicket-Request-Id", "Wicket-Signature"));

struct WrongHeader {
  const char* name;
  const char* value;
  Refusal refusal;

  friend void PrintTo(const WrongHeader& wrong, std::ostream* out) {
    *out << wrong.name << " " << wrong.value;
  }
};

class CollectorHeaderValues : public TestWithParam<WrongHeader> {};

TEST_P(CollectorHeaderValues, areRefusedWhenOfAnotherForm) {
  const auto& [name, value, refusal] = GetParam();
  EXPECT_EQ(credentialsRefusal(requestWith(name, value)), refusal);
}

const Refusal wrongType{422, 102, "the header Content-Type must be application/json"};
const Refusal wrongEncoding{422, 102, "the header Content-Encoding must be gzip"};
const Refusal wrongTester{422, 102, "the header Kite-Tester must be true or false"};
const Refusal wrongProtocol{422, 102, "the header Wicket-Protocol must be Sha512 or Sha256"};
const Refusal wrongTimestamp{
    422, 102, "the header Wicket-Timestamp must be whole milliseconds without leading zeros"};
const Refusal wrongRequestID{400, 604, "the header Wicket-Request-Id must be an upper-case UUID"};
const Refusal wrongDigits{400, 603, "the header Wicket-Signature must be lower-case hexadecimal"};
const Refusal otherSignature{400, 603, "the signature does not match the request"};

INSTANTIATE_TEST_SUITE_P(
    All, CollectorHeaderValues,
    Values(WrongHeader{"Content-Type", "application/json; charset=utf-8", wrongType},
           WrongHeader{"Content-Type", "text/plain", wrongType},
           WrongHeader{"Content-Encoding", "identity", wrongEncoding},
           WrongHeader{"Content-Encoding", "GZIP", wrongEncoding},
           WrongHeader{"Kite-Tester", "True", wrongTester},
           WrongHeader{"Kite-Tester", "1", wrongTester},
           WrongHeader{"Wicket-Protocol", "sha512", wrongProtocol},
           WrongHeader{"Wicket-Protocol", "Sha1", wrongProtocol},
           WrongHeader{"Wicket-Timestamp", "01765432200250", wrongTimestamp},
           WrongHeader{"Wicket-Timestamp", "1765432200250.5", wrongTimestamp},
           WrongHeader{"Wicket-Timestamp", "-1765432200250", wrongTimestamp},
           WrongHeader{"Wicket-Timestamp", "+1765432200250", wrongTimestamp},
           WrongHeader{"Wicket-Timestamp", "1.7e12", wrongTimestamp},
           WrongHeader{"Wicket-Timestamp", "17654322002500000000", wrongTimestamp},
           WrongHeader{"Wicket-Request-Id", "6f8852b6-5a4e-484b-99bd-0a8a6674fd93", wrongRequestID},
           WrongHeader{"Wicket-Request-Id", "6F8852B65A4E484B99BD0A8A6674FD93", wrongRequestID},
           WrongHeader{"Wicket-Request-Id", "6F8852B6-5A4E-484B-99BD-0A8A6674FD9G", wrongRequestID},
           WrongHeader{"Wicket-Request-Id", "6F8852B6-5A4E-484B-99BD-0A8A6674FD931",
                       wrongRequestID},
           WrongHeader{"Wicket-Request-Id", "6F8852B6-5A4E-484B-99BD00A8A6674FD93", wrongRequestID},
           WrongHeader{"Wicket-Signature", "0xyz", wrongDigits},
           WrongHeader{"Wicket-Signature", "ABCD", wrongDigits},
           WrongHeader{"Wicket-Signature", "abcd", otherSignature}));

TEST(CollectorCredentials, areRefusedInUpperCaseHexadecimal) {
  ReceivedRequest request = aRequest("{}");
  auto& signature = header(request, "Wicket-Signature").value;
  std::ranges::transform(signature, signature.begin(), [](char each) {
    return each >= 'a' && each <= 'f' ? static_cast<char>(each - 'a' + 'A') : each;
  });
  EXPECT_EQ(credentialsRefusal(request), wrongDigits);
}

TEST(CollectorCredentials, coverTheBody) {
  ReceivedRequest request = aRequest("{}");
  request.body.back() = static_cast<char>(request.body.back() ^ 1);
  EXPECT_EQ(credentialsRefusal(request), otherSignature);
}

TEST(CollectorCredentials, coverTheHost) {
  ReceivedRequest request = aRequest("{}");
  header(request, "Host").value = "localhost:8443";
  EXPECT_EQ(credentialsRefusal(request), otherSignature);
}

TEST(CollectorCredentials, coverThePathAndTheQuery) {
  ReceivedRequest request = aRequest("{}");
  request.target = "/v4/events?x=1";
  EXPECT_EQ(credentialsRefusal(request), otherSignature);
}

TEST(CollectorCredentials, coverTheTimestamp) {
  ReceivedRequest request = aRequest("{}");
  header(request, "Wicket-Timestamp").value = "1765432200251";
  EXPECT_EQ(credentialsRefusal(request), otherSignature);
}

TEST(CollectorCredentials, coverTheRequestID) {
  ReceivedRequest request = aRequest("{}");
  header(request, "Wicket-Request-Id").value = anotherRequestID;
  EXPECT_EQ(credentialsRefusal(request), otherSignature);
}

TEST(CollectorCredentials, needTheCollectorsKey) {
  const auto sender = authenticate(aRequest("{}"), "another", now);
  ASSERT_FALSE(sender);
  EXPECT_EQ(sender.error(), otherSignature);
}

TEST(CollectorCredentials, holdForTenMinutesEitherWay) {
  EXPECT_TRUE(authenticate(aRequest("{}"), key, now + 600));
  EXPECT_TRUE(authenticate(aRequest("{}"), key, now - 600));
}

TEST(CollectorCredentials, areTooOldAfterTenMinutes) {
  EXPECT_EQ(credentialsRefusal(aRequest("{}"), now + 600.001),
            (Refusal{400, 601, "the request is too old"}));
}

TEST(CollectorCredentials, areFromTheFutureBeforeTenMinutes) {
  EXPECT_EQ(credentialsRefusal(aRequest("{}"), now - 600.001),
            (Refusal{400, 601, "the request is from the future"}));
}

TEST(CollectorCredentials, areNotToldTooOldWhenTheSignatureIsWrong) {
  EXPECT_EQ(credentialsRefusal(requestWith("Wicket-Signature", "abcd"), now + 10'000).code, 603);
}

}  // namespace
}  // namespace kite::test
