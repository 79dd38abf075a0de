#include "Collector/Server/ListeningSocket.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>

namespace kite::tool {
namespace {

constexpr int backlog = 512;

std::string lastError() { return std::generic_category().message(errno); }

bool bindTo(int socket, const addrinfo& address) {
  const int on = 1;
  // Connections inherit it; an answer would wait for the client to acknowledge the TLS tickets.
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
         ::bind(socket, address.ai_addr, address.ai_addrlen) == 0 && ::listen(socket, backlog) == 0;
}

std::uint16_t portOf(int socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  const auto port = address.ss_family == AF_INET6
                        ? reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port
                        : reinterpret_cast<const sockaddr_in*>(&address)->sin_port;
  return ntohs(port);
}

}  // namespace

Result<ListeningSocket, std::string> ListeningSocket::open(const std::string& host,
                                                           std::uint16_t port) {
  const std::string name = fmt::format("{}:{}", host, port);
  const addrinfo wanted{.ai_flags = AI_PASSIVE | AI_NUMERICSERV,
                        .ai_family = AF_UNSPEC,
                        .ai_socktype = SOCK_STREAM,
                        .ai_protocol = 0,
                        .ai_addrlen = 0,
                        .ai_addr = nullptr,
                        .ai_canonname = nullptr,
                        .ai_next = nullptr};
  addrinfo* found = nullptr;
  if (const int error =
          ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &wanted, &found)) {
    return Failure{fmt::format("cannot listen on {}: {}", name, ::gai_strerror(error))};
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> guard(found, ::freeaddrinfo);
  ListeningSocket socket(
      ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
  if (socket._socket < 0 || !bindTo(socket._socket, *found)) {
    return Failure{fmt::format("cannot listen on {}: {}", name, lastError())};
  }
  socket._port = portOf(socket._socket);
  return socket;
}

ListeningSocket::~ListeningSocket() {
  if (_socket >= 0) ::close(_socket);
}

std::size_t connectionsTo(std::uint16_t port) {
  std::error_code error;
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const int socket = std::atoi(entry.path().filename().c_str());
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    const bool isConnected = ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
    count += isConnected && portOf(socket) == port;
  }
  return count;
}

}  // namespace kite::tool
