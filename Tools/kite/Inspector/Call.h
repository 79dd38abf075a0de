#pragma once

#include "Collector/Server/Exchange.h"
#include "Inspector/Search/Query.h"
#include "Inspector/Target.h"

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace kite::tool {

/// Why a call of the API is not answered as asked.
class APIError : public std::runtime_error {
 public:
  APIError(int status, const std::string& message) : runtime_error(message), _status(status) {}
  int status() const { return _status; }

 private:
  int _status;
};

/// One request to the API.
struct Call {
  const ReceivedRequest& request;
  const Target& target;
  std::string id;  ///< what stands in the place of the path's "{id}"
  Exchange& exchange;
  double now;  ///< seconds since 1970

  /// The member's number. Throws when it is none or out of range.
  std::int64_t number(const std::string& name, std::int64_t otherwise, std::int64_t least,
                      std::int64_t most) const;
  Query query() const;
};

void answerJSON(Exchange& exchange, std::string body);

void answerError(Exchange& exchange, const std::exception& error);

/// A work in slices, so that the server's thread serves others in between: `step` is called again
/// after the time that it returns, until it returns nothing or throws, which answers with the
/// error.
using Pause = std::optional<std::chrono::milliseconds>;
using Step = std::function<Pause(Exchange&)>;
inline constexpr std::chrono::milliseconds atOnce{0};
void runInSlices(Exchange& exchange, Step step);

}  // namespace kite::tool
