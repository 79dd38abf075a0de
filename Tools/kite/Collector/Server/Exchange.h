#pragma once

#include "Collector/Server/ReceivedRequest.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

/// What a request is answered with.
struct Reply {
  int status;
  std::vector<Header> headers;
  std::string body;
  bool isTruncated = false;  ///< announce the body, send half of it and close
};

/// One request that waits for its answer. Lives on the server's thread and only as long as the
/// connection, so it is kept by nobody but what it holds.
class Exchange {
 public:
  virtual ~Exchange() = default;

  /// The last operation on it, as is `reset`.
  virtual void answer(const Reply& reply) = 0;
  /// Resets the connection: the client sees it break without an answer.
  virtual void reset() = 0;
  /// Runs `body` with this exchange after that time, unless the client goes away before. One at a
  /// time.
  virtual void later(std::chrono::milliseconds time, std::function<void(Exchange&)> body) = 0;

  /// Begins an answer of unknown length with the reply's head and body. The client that leaves is
  /// noticed from then on.
  virtual void begin(const Reply& reply) = 0;
  virtual void send(std::string_view bytes) = 0;
  virtual void end() = 0;
  /// How many bytes the client has still to take.
  virtual std::size_t unsent() const = 0;
  /// Keeps an object until the answer is complete or the client is gone.
  virtual void hold(std::shared_ptr<void> object) = 0;
};

}  // namespace kite::tool
