#include "Inspector/Access.h"

#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace kite::test {
namespace {

using ::testing::HasSubstr;
using tool::Access;
using tool::Header;
using tool::ReceivedRequest;

const std::string rightToken = "0123456789abcdef";

class InspectorAccess : public ::testing::Test {
 protected:
  /// The status of the refusal, or 0.
  int status(std::vector<Header> headers, const std::string& target = "/api/summary") const {
    const auto refusal =
        access.refusal(request(std::move(headers), target), *tool::parseTarget(target));
    return refusal ? refusal->status : 0;
  }

  static ReceivedRequest request(std::vector<Header> headers, const std::string& target) {
    return {.method = "GET", .target = target, .headers = std::move(headers), .body = ""};
  }

  int statusWithToken(std::vector<Header> headers) const {
    headers.push_back({"Authorization", "Bearer " + rightToken});
    return status(std::move(headers));
  }

  const Header host{"Host", "127.0.0.1:8080"};
  Access access{"127.0.0.1", 8080, rightToken};
};

TEST_F(InspectorAccess, isForWhoHasTheToken) {
  EXPECT_EQ(status({host}), 401);
  EXPECT_EQ(status({host, {"Authorization", "Bearer " + rightToken}}), 0);
  EXPECT_EQ(status({host, {"Cookie", "a=b; kite_inspector_8080=" + rightToken}}), 0);
  EXPECT_EQ(status({host}, "/api/summary?token=" + rightToken), 0);
}

TEST_F(InspectorAccess, isNotForAnotherToken) {
  for (const std::string wrong : {"", "0", "0123456789abcdeF", "0123456789abcdef0"}) {
    EXPECT_EQ(status({host, {"Authorization", "Bearer " + wrong}}), 401) << wrong;
    EXPECT_EQ(status({host, {"Cookie", "kite_inspector_8080=" + wrong}}), 401) << wrong;
    EXPECT_EQ(status({host}, "/?token=" + wrong), 401) << wrong;
  }
  EXPECT_EQ(status({host, {"Cookie", "kite_inspector_8081=" + rightToken}}), 401);
  EXPECT_EQ(status({host, {"Cookie", "x_kite_inspector_8080=" + rightToken}}), 401);
}

TEST_F(InspectorAccess, knowsItsOwnNames) {
  for (const std::string own : {"127.0.0.1:8080", "localhost:8080", "[::1]:8080"}) {
    EXPECT_EQ(statusWithToken({{"Host", own}}), 0) << own;
  }
}

TEST_F(InspectorAccess, isNotReachedByAnotherName) {
  for (const std::string other :
       {"evil.example:8080", "evil.example", "127.0.0.1", "127.0.0.1:80", "localhost.:8080",
        "127.0.0.1.evil.example:8080", "192.168.0.1:8080", ":8080", ""}) {
    EXPECT_EQ(statusWithToken({{"Host", other}}), 403) << other;
  }
  EXPECT_EQ(statusWithToken({}), 403);
  EXPECT_EQ(statusWithToken({host, {"Host", "evil.example"}}), 403);
}

TEST_F(InspectorAccess, isReachedByAnyAddressWhenItListensOnAll) {
  access = Access("0.0.0.0", 8080, rightToken);
  EXPECT_EQ(statusWithToken({{"Host", "192.168.0.1:8080"}}), 0);
  EXPECT_EQ(statusWithToken({{"Host", "[fe80::1]:8080"}}), 0);
  EXPECT_EQ(statusWithToken({{"Host", "evil.example:8080"}}), 403);
  EXPECT_EQ(statusWithToken({{"Host", "192.168.0.1.evil.example:8080"}}), 403);
}

TEST_F(InspectorAccess, isReachedByTheNameItListensOn) {
  access = Access("build.example", 8080, rightToken);
  EXPECT_EQ(statusWithToken({{"Host", "build.example:8080"}}), 0);
}

TEST_F(InspectorAccess, isNotForOtherPages) {
  for (const std::string other : {"http://evil.example", "null", "http://localhost:8080",
                                  "https://127.0.0.1:8080", "http://127.0.0.1:8081", ""}) {
    EXPECT_EQ(statusWithToken({host, {"Origin", other}}), 403) << other;
  }
  EXPECT_EQ(statusWithToken({host, {"Origin", "http://127.0.0.1:8080"}}), 0);
}

TEST_F(InspectorAccess, isNotForFetchesOfOtherSites) {
  for (const std::string other : {"cross-site", "same-site", ""}) {
    EXPECT_EQ(statusWithToken({host, {"Sec-Fetch-Site", other}}), 403) << other;
  }
  EXPECT_EQ(statusWithToken({host, {"Sec-Fetch-Site", "same-origin"}}), 0);
  EXPECT_EQ(statusWithToken({host, {"Sec-Fetch-Site", "none"}}), 0);
}

TEST_F(InspectorAccess, entersByTheAddressAndGoesOnWithoutTheToken) {
  const std::string target = "/?q=name%3Abuy&token=" + rightToken + "&x=1";
  const auto entrance = access.entrance(request({host}, target), *tool::parseTarget(target));
  ASSERT_TRUE(entrance);
  EXPECT_EQ(entrance->status, 303);
  EXPECT_EQ(entrance->headers[0].value, "/?q=name%3Abuy&x=1");
  EXPECT_EQ(entrance->headers[1].value,
            "kite_inspector_8080=" + rightToken + "; HttpOnly; SameSite=Strict; Path=/");
  EXPECT_FALSE(access.entrance(request({host}, "/?q=1"), *tool::parseTarget("/?q=1")));
}

TEST(InspectorToken, isNewEachTime) {
  EXPECT_EQ(tool::makeToken().size(), 48U);
  EXPECT_NE(tool::makeToken(), tool::makeToken());
}

TEST(InspectorToken, isKeptInItsFileForItsOwnerAlone) {
  const TemporaryFolder folder;
  const std::string file = folder.path() / "token";
  const auto made = tool::tokenOfFile(file);
  ASSERT_TRUE(made);
  const auto read = tool::tokenOfFile(file);
  ASSERT_TRUE(read);
  EXPECT_EQ(*made, *read);
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(file).permissions(), perms::owner_read | perms::owner_write);
}

TEST(InspectorToken, isNotTakenFromJustAnyFile) {
  const TemporaryFolder folder;
  const std::string file = folder.path() / "token";
  for (const std::string text : {"", "short", "0123456789abcdef; Path=/"}) {
    std::ofstream(file) << text;
    const auto read = tool::tokenOfFile(file);
    ASSERT_FALSE(read) << text;
    EXPECT_THAT(read.error(), HasSubstr("holds no token"));
  }
  EXPECT_FALSE(tool::tokenOfFile(folder.path() / "absent/token"));
}

TEST(InspectorTarget, isDecoded) {
  const auto target = tool::parseTarget("/a%20b?query=name%3Abuy+x&empty&twice=1&twice=2&=n");
  ASSERT_TRUE(target);
  EXPECT_EQ(target->path, "/a b");
  EXPECT_EQ(target->member("query"), "name:buy x");
  EXPECT_EQ(target->member("empty"), "");
  EXPECT_TRUE(target->members.contains("empty"));
  EXPECT_EQ(target->member("twice"), "1");
  EXPECT_EQ(target->member("absent"), "");
}

TEST(InspectorTarget, isNoneWithAMalformedEscape) {
  for (const std::string text : {"/%", "/%4", "/%zz", "/?a=%", "/?%g0=1"}) {
    EXPECT_FALSE(tool::parseTarget(text)) << text;
  }
}

}  // namespace
}  // namespace kite::test
