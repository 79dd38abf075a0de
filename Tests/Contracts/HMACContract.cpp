#include <Kite/Platform/Lockwork.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kite::Lockwork {
namespace {

std::string code(Algorithm algorithm, std::string_view key, std::string_view message) {
  HMAC hmac(algorithm, key);
  hmac.update(message);
  return hexadecimal(hmac.finish().bytes);
}

struct Vector {
  std::string key;
  std::string message;
  std::string sha256;
  std::string sha512;
};

std::string ascending(char first, char last) {
  std::string text;
  for (char byte = first; byte <= last; ++byte) text += byte;
  return text;
}

// RFC 4231, test cases 1 to 4, 6 and 7.
std::vector<Vector> publishedVectors() {
  return {
      {std::string(20, '\x0b'), "Hi There",
       "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7",
       "87aa7cdea5ef619d4ff0b4241a1d6cb02379f4e2ce4ec2787ad0b30545e17cde"
       "daa833b7d6b8a702038b274eaea3f4e4be9d914eeb61f1702e696c203a126854"},
      {"Jefe", "what do ya want for nothing?",
       "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843",
       "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea250554"
       "9758bf75c05a994a6d034f65f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737"},
      {std::string(20, '\xaa'), std::string(50, '\xdd'),
       "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe",
       "fa73b0089d56a284efb0f0756c890be9b1b5dbdd8ee81a3655f83e33b2279d39"
       "bf3e848279a722c806b485a47e67c807b946a337bee8942674278859e13292fb"},
      {ascending('\x01', '\x19'), std::string(50, '\xcd'),
       "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b",
       "b0ba465637458c6990e5a8c5f61d4af7e576d97ff94b872de76f8050361ee3db"
       "a91ca5c11aa25eb4d679275cc5788063a5f19741120c4f2de2adebeb10a298dd"},
      {std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
       "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54",
       "80b24263c7c1a3ebb71493c1dd7be8b49b46d1f41b4aeec1121b013783f8f352"
       "6b56d037e05f2598bd0fd2215d6a1e5295e64f73f63f0aec8b915a985d786598"},
      {std::string(131, '\xaa'),
       "This is a test using a larger than block-size key and a larger than block-size data. "
       "The key needs to be hashed before being used by the HMAC algorithm.",
       "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2",
       "e37b6a775dc87dbaa4dfa9f96e5e3ffddebd71f8867289865df5a32d20cdc944"
       "b6022cac3c4982b10d5eeb55c3e4de15134676fb6de0446065c97440fa8c6a58"},
  };
}

TEST(HMACContract, agreesWithThePublishedVectors) {
  for (const auto& vector : publishedVectors()) {
    EXPECT_EQ(code(Algorithm::sha256, vector.key, vector.message), vector.sha256);
    EXPECT_EQ(code(Algorithm::sha512, vector.key, vector.message), vector.sha512);
  }
}

TEST(HMACContract, givesOneCodeHoweverTheMessageIsCut) {
  for (const auto& vector : publishedVectors())
    for (std::size_t cut = 0; cut <= vector.message.size(); ++cut) {
      HMAC hmac(Algorithm::sha512, vector.key);
      hmac.update(std::string_view(vector.message).substr(0, cut));
      hmac.update({});
      hmac.update(std::string_view(vector.message).substr(cut));
      EXPECT_EQ(hexadecimal(hmac.finish().bytes), vector.sha512);
    }
}

TEST(HMACContract, takesAnEmptyKeyAndAnEmptyMessage) {
  EXPECT_EQ(code(Algorithm::sha256, {}, {}),
            "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad");
  EXPECT_EQ(code(Algorithm::sha512, {}, {}),
            "b936cee86c9f87aa5d3c6f2e84cb5a4239a5fe50480a6ec66b70ab5b1f4ac673"
            "0c6c515421b327ec1d69402e53dfb49ad7381eb067b338fd7b0cb22247225d47");
}

TEST(HMACContract, numbersItsAlgorithmsAsTheSchemeDoes) {
  EXPECT_EQ(static_cast<int>(Algorithm::sha256), 1);
  EXPECT_EQ(static_cast<int>(Algorithm::sha512), 3);
}

TEST(HMACContract, worksOnSeveralThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([] {
      for (const auto& vector : publishedVectors())
        EXPECT_EQ(code(Algorithm::sha512, vector.key, vector.message), vector.sha512);
    });
  for (auto& thread : threads) thread.join();
}

TEST(HexadecimalContract, writesTwoLowerCaseDigitsPerByte) {
  EXPECT_EQ(hexadecimal(std::string_view("\x00\x09\x0a\x1f\x80\xff", 6)), "00090a1f80ff");
  EXPECT_EQ(hexadecimal({}), "");
}

TEST(HexadecimalContract, writesEveryByte) {
  for (int byte = 0; byte < 256; ++byte) {
    char expected[3];
    std::snprintf(expected, sizeof expected, "%02x", static_cast<unsigned>(byte));
    EXPECT_EQ(hexadecimal(std::string(1, static_cast<char>(byte))), expected);
  }
}

}  // namespace
}  // namespace kite::Lockwork
