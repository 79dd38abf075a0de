#pragma once

#include <string>
#include <utility>

namespace kite::tool {

/// Why a request was not accepted, as it is told to the client.
struct Refusal {
  int status;  ///< of the HTTP reply
  int code;    ///< "error_code" of its body
  std::string message;

  friend bool operator==(const Refusal&, const Refusal&) = default;
};

inline Refusal missingData(std::string message) { return {422, 100, std::move(message)}; }
inline Refusal invalidEvent(std::string message) { return {422, 101, std::move(message)}; }
inline Refusal invalidFormat(std::string message) { return {422, 102, std::move(message)}; }
inline Refusal replayed(std::string message) { return {400, 601, std::move(message)}; }
inline Refusal wrongSignature(std::string message) { return {400, 603, std::move(message)}; }
inline Refusal malformedRequestID(std::string message) { return {400, 604, std::move(message)}; }

}  // namespace kite::tool
