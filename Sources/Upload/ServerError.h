#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kite {

/// The body of a rejected reply.
struct ServerErrorBody {
  long long errorCode;
  std::string errorDescription;

  friend bool operator==(const ServerErrorBody&, const ServerErrorBody&) = default;
};

/// Nothing when a key is missing or of the wrong type.
std::optional<ServerErrorBody> decodeServerErrorBody(std::string_view json);

/// Why the collection service rejected a batch.
struct ServerError {
  struct MissingRequiredData {
    std::string message;
    friend bool operator==(const MissingRequiredData&, const MissingRequiredData&) = default;
  };
  struct EventValidation {
    std::string message;
    friend bool operator==(const EventValidation&, const EventValidation&) = default;
  };
  struct InvalidDataFormat {
    std::string message;
    friend bool operator==(const InvalidDataFormat&, const InvalidDataFormat&) = default;
  };
  struct Unknown {
    int statusCode;
    friend bool operator==(const Unknown&, const Unknown&) = default;
  };
  enum class Request { replayAttack, invalidWicketSignature, malformedIdRequest };

  std::variant<MissingRequiredData, EventValidation, InvalidDataFormat, Unknown, Request> reason;

  /// Nothing for a pair of status and code that the service does not use.
  static std::optional<ServerError> from(const ServerErrorBody& body, int statusCode);

  std::string debugDescription() const;

  friend bool operator==(const ServerError&, const ServerError&) = default;
};

}  // namespace kite
