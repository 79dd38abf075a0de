#pragma once

#include <Kite/Base/URL.h>

#include "Support/TestCertificates.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kite::test {

struct ReceivedRequest {
  std::string method;
  std::string path;
  std::map<std::string, std::string> headerFields;  ///< names in lower case
  std::string body;
};

/// One TLS connection, seen from the server.
class TLSConnection {
 public:
  TLSConnection(SSL_CTX* context, int socket) : _socket(socket), _ssl(SSL_new(context), &SSL_free) {
    const int atOnce = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
    SSL_set_fd(_ssl.get(), socket);
  }
  TLSConnection(const TLSConnection&) = delete;
  TLSConnection& operator=(const TLSConnection&) = delete;
  ~TLSConnection() { ::close(_socket); }

  bool accept() { return SSL_accept(_ssl.get()) == 1; }

  /// False once the peer is gone.
  bool write(const std::string& bytes) {
    return SSL_write(_ssl.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
  }

  std::optional<ReceivedRequest> readRequest() {
    std::size_t headerEnd;
    while ((headerEnd = _received.find("\r\n\r\n")) == std::string::npos)
      if (!readMore()) return {};
    auto request = parseHeader(_received.substr(0, headerEnd + 2));
    _received.erase(0, headerEnd + 4);
    if (request.headerFields.contains("answer-before-body")) return request;
    const auto length = std::stoul("0" + request.headerFields["content-length"]);
    while (_received.size() < length)
      if (!readMore()) return {};
    request.body = _received.substr(0, length);
    _received.erase(0, length);
    return request;
  }

  /// Waits until the peer hangs up, or until the server ends.
  void awaitEnd() {
    while (readMore()) {
    }
  }
  void closeProperly() { SSL_shutdown(_ssl.get()); }
  /// Makes the coming close a reset.
  void reset() {
    const linger immediately{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(_socket, SOL_SOCKET, SO_LINGER, &immediately, sizeof immediately);
  }
  /// Wakes whoever waits on this connection. The only operation for another thread.
  void interrupt() { ::shutdown(_socket, SHUT_RDWR); }

 private:
  bool readMore() {
    char buffer[16384];
    const int size = SSL_read(_ssl.get(), buffer, sizeof buffer);
    if (size > 0) _received.append(buffer, static_cast<std::size_t>(size));
    return size > 0;
  }

  static ReceivedRequest parseHeader(const std::string& header) {
    ReceivedRequest request;
    const auto methodEnd = header.find(' ');
    request.method = header.substr(0, methodEnd);
    request.path = header.substr(methodEnd + 1, header.find(' ', methodEnd + 1) - methodEnd - 1);
    for (auto at = header.find("\r\n") + 2; at < header.size();) {
      const auto end = header.find("\r\n", at);
      const auto colon = header.find(':', at);
      auto name = header.substr(at, colon - at);
      for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      const auto value = header.find_first_not_of(' ', colon + 1);
      request.headerFields[name] = header.substr(value, end - value);
      at = end + 2;
    }
    return request;
  }

  const int _socket;
  const std::unique_ptr<SSL, decltype(&SSL_free)> _ssl;
  std::string _received;
};

/// Writes a reply; false to close the connection afterwards.
using Reply = std::function<bool(TLSConnection&)>;

inline Reply replies(int status, const std::string& body = "", const std::string& fields = "") {
  return [=](TLSConnection& connection) {
    return connection.write("HTTP/1.1 " + std::to_string(status) + " Any\r\nContent-Length: " +
                            std::to_string(body.size()) + "\r\n" + fields + "\r\n" + body);
  };
}
inline Reply redirects(int status, const std::string& location) {
  return replies(status, "", "Location: " + location + "\r\n");
}
inline Reply endlessBody() {
  return [](TLSConnection& connection) {
    connection.write("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.write(std::string(16384, 'x'))) {
    }
    return false;
  };
}
inline Reply endlessHeader() {
  return [](TLSConnection& connection) {
    connection.write("HTTP/1.1 200 OK\r\n");
    while (connection.write("Field: " + std::string(1000, 'x') + "\r\n")) {
    }
    return false;
  };
}
/// Promises more than it sends.
inline Reply truncated(int status = 200) {
  return [=](TLSConnection& connection) {
    connection.write("HTTP/1.1 " + std::to_string(status) +
                     " Any\r\nContent-Length: 100\r\n\r\nhalf");
    connection.closeProperly();
    connection.awaitEnd();  // a close with bytes unread would be a reset
    return false;
  };
}
inline Reply breaksOffInItsHeader() {
  return [](TLSConnection& connection) {
    connection.write("HTTP/1.1 200 OK\r\nContent-Le");
    connection.closeProperly();
    return false;
  };
}
inline Reply endsInATrailer() {
  return [](TLSConnection& connection) {
    return connection.write(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
        "4\r\nbody\r\n0\r\nTrailer: field\r\n\r\n");
  };
}
inline Reply resets() {
  return [](TLSConnection& connection) {
    connection.reset();
    return false;
  };
}
inline Reply staysSilent() {
  return [](TLSConnection& connection) {
    connection.awaitEnd();
    return false;
  };
}
/// Begins a reply and stops in the middle.
inline Reply stalls() {
  return [](TLSConnection& connection) {
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf");
    connection.awaitEnd();
    return false;
  };
}
inline Reply talksGarbage() {
  return [](TLSConnection& connection) {
    connection.write("\x01\x02 no such protocol\r\n\r\n");
    connection.closeProperly();
    return false;
  };
}

/// A small HTTPS server on a free port of 127.0.0.1, for one test.
class TLSTestServer {
 public:
  using Script = std::function<Reply(const ReceivedRequest&)>;

  explicit TLSTestServer(const TestIdentity& identity, Reply reply = replies(200),
                         int newestTLS = TLS1_3_VERSION)
      : TLSTestServer(identity, Script([reply](const ReceivedRequest&) { return reply; }),
                      newestTLS) {}
  TLSTestServer(const TestIdentity& identity, Script script, int newestTLS = TLS1_3_VERSION)
      : _script(std::move(script)), _context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
    SSL_CTX_use_certificate(_context.get(), identity.certificate.get());
    SSL_CTX_use_PrivateKey(_context.get(), identity.key.get());
    SSL_CTX_set_max_proto_version(_context.get(), newestTLS);
    if (newestTLS < TLS1_2_VERSION) SSL_CTX_set_security_level(_context.get(), 0);
    listen();
    _threads.emplace_back([this] { acceptAll(); });
  }
  TLSTestServer(const TLSTestServer&) = delete;
  TLSTestServer& operator=(const TLSTestServer&) = delete;

  ~TLSTestServer() {
    ::shutdown(_listener, SHUT_RDWR);
    _threads.front().join();
    {
      const std::scoped_lock guard(_mutex);
      for (const auto& connection : _connections) connection->interrupt();
    }
    _threads.pop_front();
    for (auto& thread : _threads) thread.join();
    ::close(_listener);
  }

  URL url(const std::string& path = "/") const {
    return *URL::parse("https://127.0.0.1:" + std::to_string(_port) + path);
  }
  std::uint16_t port() const { return _port; }

  std::vector<ReceivedRequest> requests() const {
    const std::scoped_lock guard(_mutex);
    return _requests;
  }
  /// Waits until this many requests have come.
  void awaitRequests(std::size_t count) const {
    std::unique_lock guard(_mutex);
    _arrived.wait(guard, [&] { return _requests.size() >= count; });
  }
  /// Connections that were opened, and those of them that both sides found to be secure.
  int connections() const { return _accepted; }
  int handshakes() const { return _handshakes; }

 private:
  void listen() {
    _listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (::bind(_listener, any, size) != 0 || ::listen(_listener, 16) != 0 ||
        ::getsockname(_listener, any, &size) != 0)
      throw std::runtime_error("cannot listen");
    _port = ntohs(address.sin_port);
  }

  void acceptAll() {
    blockBrokenPipeSignal();
    for (int socket; (socket = ::accept(_listener, nullptr, nullptr)) >= 0;) {
      ++_accepted;
      const auto connection = std::make_shared<TLSConnection>(_context.get(), socket);
      {
        const std::scoped_lock guard(_mutex);
        _connections.push_back(connection);
      }
      _threads.emplace_back([this, connection] { serve(connection); });
    }
  }

  void serve(const std::shared_ptr<TLSConnection>& connection) {
    if (connection->accept()) {
      ++_handshakes;
      answerAll(*connection);
    }
    const std::scoped_lock guard(_mutex);
    std::erase(_connections, connection);
  }

  void answerAll(TLSConnection& connection) {
    while (const auto request = connection.readRequest()) {
      {
        const std::scoped_lock guard(_mutex);
        _requests.push_back(*request);
      }
      _arrived.notify_all();
      if (!_script(*request)(connection)) return;
    }
  }

  static void blockBrokenPipeSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  }

  const Script _script;
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> _context;
  int _listener = -1;
  std::uint16_t _port = 0;
  std::list<std::thread> _threads;  // the first accepts, and adds the others
  std::atomic<int> _accepted = 0;
  std::atomic<int> _handshakes = 0;

  mutable std::mutex _mutex;
  mutable std::condition_variable _arrived;
  std::vector<ReceivedRequest> _requests;
  std::vector<std::shared_ptr<TLSConnection>> _connections;
};

}  // namespace kite::test
