#pragma once

#include <Kite/Base/Result.h>

#include "Inspector/API.h"
#include "Inspector/Access.h"
#include "Inspector/Live.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kite::tool {

struct InspectorOptions {
  std::string host = "127.0.0.1";
  std::uint16_t port = 0;  ///< 0 picks one
  std::string token;       ///< that lets in
  Inspected inspected;
};

/// The page and the API that show what a collector has received, over plain HTTP. `run` serves
/// them on the thread that calls it; reads have a connection of their own, so that the intake waits
/// for no reader.
class Inspector {
 public:
  static constexpr std::size_t mostConnections = 64;
  static constexpr std::size_t largestBody = 64 * 1024;
  static constexpr std::size_t longestTarget = 8 * 1024;

  /// Listens from then on. The error is one line.
  static Result<std::unique_ptr<Inspector>, std::string> listen(InspectorOptions options);

  /// Where it is, with the token that it wants.
  std::string url() const;
  void run() { _server->run(); }
  /// From any thread.
  void stop() { _server->stop(); }
  /// From any thread.
  void changed(std::vector<RepeatedEvent> repeated) { _live->changed(std::move(repeated)); }

 private:
  Inspector(InspectorOptions options, std::unique_ptr<EventReader> reader);
  void handle(const ReceivedRequest& request, Exchange& exchange);
  void route(const ReceivedRequest& request, Exchange& exchange);

  InspectorOptions _options;
  std::unique_ptr<EventReader> _reader;
  std::unique_ptr<Access> _access;
  std::unique_ptr<HTTPServer> _server;
  std::unique_ptr<Live> _live;
};

}  // namespace kite::tool
