#pragma once

#include <Kite/Base/Result.h>

#include <cstdint>
#include <string>
#include <utility>

namespace kite::tool {

/// A bound TCP socket that accepts connections, closed with the object unless it was released.
class ListeningSocket {
 public:
  /// `host` is a name or an address, port 0 picks one. The error is one line.
  static Result<ListeningSocket, std::string> open(const std::string& host, std::uint16_t port);
  ~ListeningSocket();
  ListeningSocket(ListeningSocket&& other) noexcept
      : _socket(std::exchange(other._socket, -1)), _port(other._port) {}
  ListeningSocket& operator=(ListeningSocket&&) = delete;

  int get() const { return _socket; }
  int release() { return std::exchange(_socket, -1); }
  std::uint16_t port() const { return _port; }

 private:
  explicit ListeningSocket(int socket) : _socket(socket) {}

  int _socket;
  std::uint16_t _port = 0;
};

/// How many connections of this process came in at that port.
std::size_t connectionsTo(std::uint16_t port);

}  // namespace kite::tool
