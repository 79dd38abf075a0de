#include "Upload/ServerError.h"

#include "JSON/JSONCoding.h"
#include "JSON/JSONDecoder.h"

#include <cstdint>

namespace kite {

template <>
struct JSONCoding<std::int64_t> {
  static std::optional<std::int64_t> decode(const JSONValue& json) {
    return json.integer() ? std::optional(*json.integer()) : std::nullopt;
  }
};

namespace {

struct Describe {
  std::string operator()(const ServerError::MissingRequiredData& error) const {
    return "Missing a required data: " + error.message;
  }
  std::string operator()(const ServerError::EventValidation& error) const {
    return "Failed event validation: " + error.message;
  }
  std::string operator()(const ServerError::InvalidDataFormat& error) const {
    return "Invalid data format: " + error.message;
  }
  std::string operator()(const ServerError::Unknown& error) const {
    return "Unknown error with code: " + std::to_string(error.statusCode);
  }
  std::string operator()(ServerError::Request error) const {
    switch (error) {
      case ServerError::Request::replayAttack:
        return "Reply attack detected";
      case ServerError::Request::invalidWicketSignature:
        return "Invalid Wicket signature";
      case ServerError::Request::malformedIdRequest:
        return "Malformed Id request";
    }
    return {};
  }
};

std::optional<ServerError> rejectedContent(const ServerErrorBody& body) {
  const std::string& message = body.errorDescription;
  switch (body.errorCode) {
    case 100:
      return ServerError{ServerError::MissingRequiredData{message}};
    case 101:
      return ServerError{ServerError::EventValidation{message}};
    case 102:
      return ServerError{ServerError::InvalidDataFormat{message}};
    default:
      return std::nullopt;
  }
}

std::optional<ServerError> rejectedRequest(const ServerErrorBody& body) {
  switch (body.errorCode) {
    case 601:
      return ServerError{ServerError::Request::replayAttack};
    case 603:
      return ServerError{ServerError::Request::invalidWicketSignature};
    case 604:
      return ServerError{ServerError::Request::malformedIdRequest};
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<ServerErrorBody> decodeServerErrorBody(std::string_view json) {
  const auto decoded = decodeJSON(json);
  if (!decoded) return std::nullopt;
  RecordReader reader(*decoded);
  return reader.whole(ServerErrorBody{.errorCode = reader.required<std::int64_t>("error_code"),
                                      .errorDescription = reader.required<std::string>("message")});
}

std::optional<ServerError> ServerError::from(const ServerErrorBody& body, int statusCode) {
  switch (statusCode) {
    case 422:
      return rejectedContent(body);
    case 400:
      return rejectedRequest(body);
    default:
      return std::nullopt;
  }
}

std::string ServerError::debugDescription() const { return std::visit(Describe{}, reason); }

}  // namespace kite
