#include "Upload/Wicket.h"

#include <gtest/gtest.h>

namespace kite {
namespace {

std::string bytesOf(std::string_view hexadecimal) {
  std::string bytes;
  for (std::size_t at = 0; at < hexadecimal.size(); at += 2)
    bytes += static_cast<char>(std::stoi(std::string(hexadecimal.substr(at, 2)), nullptr, 16));
  return bytes;
}

TEST(WireDocumentTests, theWorkedExampleIsWhatTheLibrarySigns) {
  const auto body = std::make_shared<const Data>(
      Data{bytesOf("1f8b0800000000000003ab564a2d4bcd2b2956b28a8ead05003a794c5f0d000000")});
  EXPECT_EQ(Wicket::signature({.url = *URL::parse("https://events.kite.example/v4/events"),
                               .body = body,
                               .now = {1765432100.1234},
                               .requestId = *UUID::parse("79690975-FBDE-45B0-A2A3-7357AE2CC59B"),
                               .secret = "secret",
                               .wicketProtocol = Wicket::Protocol::sha512}),
            "42fe6aa855f947019b4acd1d58b6c953e514a8b152f51891d529c5ee401c6994"
            "11f90a7f54c89143e95f108f23574efca423ce71a4bd898e2e6e460a894f27d7");
}

}  // namespace
}  // namespace kite
