#include <Kite/AttributionClient.h>

#include <gtest/gtest.h>

namespace kite::test {
namespace {

using Details = AttributionClient::Details;

struct Received {
  int calls = 0;
  std::optional<Details> details;
  std::optional<std::string> error;

  AttributionClient::Callback callback() {
    return [this](std::optional<Details> given, std::optional<std::string> reason) {
      ++calls;
      details = std::move(given);
      error = std::move(reason);
    };
  }
};

TEST(AttributionClientTests, passesTheDetailsOfThePlatformsRequestOn) {
  Received answer;
  AttributionClient::live([](const AttributionClient::Callback& callback) {
    callback(Details{{"campaign", "hiking"}}, std::nullopt);
  }).requestAttributionDetails(answer.callback());
  EXPECT_EQ(answer.calls, 1);
  EXPECT_EQ(answer.details, std::optional(Details{{"campaign", "hiking"}}));
  EXPECT_EQ(answer.error, std::nullopt);
}

TEST(AttributionClientTests, passesItsErrorOn) {
  Received answer;
  AttributionClient::live([](const AttributionClient::Callback& callback) {
    callback(std::nullopt, "offline");
  }).requestAttributionDetails(answer.callback());
  EXPECT_EQ(answer.details, std::nullopt);
  EXPECT_EQ(answer.error, std::optional<std::string>("offline"));
}

TEST(AttributionClientTests, withoutAServiceAnswersOnceWithNoDetails) {
  Received answer;
  AttributionClient::none().requestAttributionDetails(answer.callback());
  EXPECT_EQ(answer.calls, 1);
  EXPECT_EQ(answer.details, std::nullopt);
  EXPECT_EQ(answer.error, std::nullopt);
}

}  // namespace
}  // namespace kite::test
