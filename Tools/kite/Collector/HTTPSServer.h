#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Certificates.h"
#include "Collector/ReceivedRequest.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
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
/// connection, so it is never kept; every operation but `later` is the last one on it.
class Exchange {
 public:
  virtual ~Exchange() = default;

  virtual void answer(const Reply& reply) = 0;
  /// Resets the connection: the client sees it break without an answer.
  virtual void reset() = 0;
  /// Runs `body` with this exchange after that time, unless the client goes away before.
  virtual void later(std::chrono::milliseconds time, std::function<void(Exchange&)> body) = 0;
};

struct HTTPSServerOptions {
  std::string host;
  std::uint16_t port;  ///< 0 picks one
  CertificateFiles certificate;
  /// Called on the thread of `run` for every request.
  std::function<void(ReceivedRequest, Exchange&)> handle;
};

/// An HTTP/1.1 server over TLS 1.2 or later that runs on one thread. Bytes that are not HTTP and
/// bodies beyond `largestRequest` it refuses by itself.
class HTTPSServer {
 public:
  static constexpr std::size_t largestRequest = 32 * 1024 * 1024;

  /// Listens from then on. The error is one line.
  static Result<std::unique_ptr<HTTPSServer>, std::string> listen(HTTPSServerOptions options);
  virtual ~HTTPSServer() = default;

  virtual std::uint16_t port() const = 0;
  /// Serves until `stop` is called, before or meanwhile, from any thread.
  virtual void run() = 0;
  virtual void stop() = 0;
};

}  // namespace kite::tool
