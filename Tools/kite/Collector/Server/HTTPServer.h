#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Server/Certificates.h"
#include "Collector/Server/Exchange.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kite::tool {

struct HTTPServerOptions {
  std::string host;
  std::uint16_t port;                           ///< 0 picks one
  std::optional<CertificateFiles> certificate;  ///< else it speaks plain HTTP
  /// Called on the thread of `run` for every request.
  std::function<void(ReceivedRequest, Exchange&)> handle;
  std::size_t largestBody = 32 * 1024 * 1024;
  std::chrono::seconds patience = std::chrono::seconds(30);  ///< with a slow client
  std::size_t mostConnections = 0;  ///< those beyond wait to be accepted; 0 is any number
};

/// Runs a body on a server's thread. For that thread alone.
class ServerTimer {
 public:
  virtual ~ServerTimer() = default;
  /// Once, after that time; a time that was set before is forgotten.
  virtual void start(std::chrono::milliseconds time) = 0;
};

/// An HTTP/1.1 server, over TLS 1.2 or later or in the plain, that runs on one thread. Bytes that
/// are not HTTP and bodies beyond the limit it refuses by itself.
class HTTPServer {
 public:
  /// Listens from then on. The error is one line.
  static Result<std::unique_ptr<HTTPServer>, std::string> listen(HTTPServerOptions options);
  virtual ~HTTPServer() = default;

  virtual std::uint16_t port() const = 0;
  /// Before `run`, or on its thread.
  virtual std::unique_ptr<ServerTimer> timer(std::function<void()> body) = 0;
  /// What `wake` runs; before `run`.
  virtual void onWake(std::function<void()> body) = 0;
  /// Runs the body of `onWake` soon, once for many calls. From any thread.
  virtual void wake() = 0;
  /// Serves until `stop` is called, before or meanwhile, from any thread.
  virtual void run() = 0;
  virtual void stop() = 0;
};

/// A host that is listened on, as it stands in an address for people and programs.
std::string shownHost(const std::string& host);

}  // namespace kite::tool
