#include "Upload/ServerError.h"

#include "Upload/ServerResponse.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

std::optional<ServerError> errorOf(int statusCode, long long errorCode) {
  return ServerError::from({.errorCode = errorCode, .errorDescription = "x"}, statusCode);
}

std::string descriptionOf(int statusCode, long long errorCode) {
  const auto error = errorOf(statusCode, errorCode);
  return error ? error->debugDescription() : "none";
}

TEST(ServerErrorTests, refusedContentKeepsTheMessage) {
  EXPECT_EQ(errorOf(422, 100), ServerError{ServerError::MissingRequiredData{"x"}});
  EXPECT_EQ(errorOf(422, 101), ServerError{ServerError::EventValidation{"x"}});
  EXPECT_EQ(errorOf(422, 102), ServerError{ServerError::InvalidDataFormat{"x"}});
}

TEST(ServerErrorTests, refusedRequestsForgetTheMessage) {
  EXPECT_EQ(errorOf(400, 601), ServerError{ServerError::Request::replayAttack});
  EXPECT_EQ(errorOf(400, 603), ServerError{ServerError::Request::invalidWicketSignature});
  EXPECT_EQ(errorOf(400, 604), ServerError{ServerError::Request::malformedIdRequest});
}

TEST(ServerErrorTests, anyOtherPairOfStatusAndCodeIsNone) {
  EXPECT_EQ(errorOf(400, 602), std::nullopt);
  EXPECT_EQ(errorOf(422, 603), std::nullopt);
  EXPECT_EQ(errorOf(400, 100), std::nullopt);
  EXPECT_EQ(errorOf(422, 99), std::nullopt);
  EXPECT_EQ(errorOf(422, 103), std::nullopt);
  EXPECT_EQ(errorOf(500, 100), std::nullopt);
  EXPECT_EQ(errorOf(200, 601), std::nullopt);
}

TEST(ServerErrorTests, describesItself) {
  EXPECT_EQ(descriptionOf(422, 100), "Missing a required data: x");
  EXPECT_EQ(descriptionOf(422, 101), "Failed event validation: x");
  EXPECT_EQ(descriptionOf(422, 102), "Invalid data format: x");
  EXPECT_EQ(descriptionOf(400, 601), "Reply attack detected");
  EXPECT_EQ(descriptionOf(400, 603), "Invalid Wicket signature");
  EXPECT_EQ(descriptionOf(400, 604), "Malformed Id request");
  EXPECT_EQ(ServerError{ServerError::Unknown{503}}.debugDescription(),
            "Unknown error with code: 503");
}

TEST(ServerErrorTests, isEqualByCaseAndPayload) {
  const ServerError error{ServerError::EventValidation{"x"}};
  EXPECT_EQ(error, ServerError{ServerError::EventValidation{"x"}});
  EXPECT_NE(error, ServerError{ServerError::EventValidation{"y"}});
  EXPECT_NE(error, ServerError{ServerError::InvalidDataFormat{"x"}});
  EXPECT_NE(ServerError{ServerError::Unknown{500}}, ServerError{ServerError::Unknown{501}});
}

TEST(ServerErrorBodyTests, readsCodeAndMessageAndIgnoresTheRest) {
  EXPECT_EQ(decodeServerErrorBody(R"({"message":"x","error_code":101,"more":[]})"),
            (ServerErrorBody{.errorCode = 101, .errorDescription = "x"}));
}

TEST(ServerErrorBodyTests, needsBothWithTheirTypes) {
  for (const char* text :
       {"", "<html>", "[]", "{}", R"({"error_code":101})", R"({"message":"x"})",
        R"({"error_code":"101","message":"x"})", R"({"error_code":101.5,"message":"x"})",
        R"({"error_code":null,"message":"x"})", R"({"error_code":101,"message":1})"})
    EXPECT_EQ(decodeServerErrorBody(text), std::nullopt) << text;
}

TEST(ServerResponseTests, readsBothNumbersAndIgnoresTheRest) {
  EXPECT_EQ(decodeServerResponse(R"({"last_event_timestamp":2,"delta":-1.5,"more":{}})"),
            (ServerResponse{.delta = -1.5, .lastEventTimestamp = 2}));
}

TEST(ServerResponseTests, needsBothNumbers) {
  for (const char* text :
       {"", "<html>", "[]", "{}", R"({"delta":1.5})", R"({"last_event_timestamp":2})",
        R"({"delta":"1.5","last_event_timestamp":2})",
        R"({"delta":1.5,"last_event_timestamp":null})",
        R"({"delta":true,"last_event_timestamp":2})",
        R"({"delta":1e999,"last_event_timestamp":2})"})
    EXPECT_EQ(decodeServerResponse(text), std::nullopt) << text;
}

}  // namespace
}  // namespace kite::test
