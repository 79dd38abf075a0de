#include "Demo/ClosedPort.h"

#include "Common/CommandFailure.h"

#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kite::tool {

ClosedPort::ClosedPort() : _socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  // Bound but not listening.
  if (::bind(_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    throw CommandFailure(fmt::format("cannot find a port: {}", std::strerror(errno)));
}

ClosedPort::~ClosedPort() { ::close(_socket); }

std::string ClosedPort::url() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ::getsockname(_socket, reinterpret_cast<sockaddr*>(&address), &size);
  return fmt::format("https://127.0.0.1:{}/v4/events", ntohs(address.sin_port));
}

}  // namespace kite::tool
