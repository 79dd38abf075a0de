#include "Tool/Inspector/PlainHTTP.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace kite::test {
namespace {

constexpr int longestSilence = 20'000;  // milliseconds

std::string withoutChunks(const std::string& text) {
  std::string body;
  std::size_t at = 0;
  for (;;) {
    const auto end = text.find("\r\n", at);
    if (end == std::string::npos) return body + "(the last chunk is missing)";
    const std::size_t size = std::stoul(text.substr(at, end - at), nullptr, 16);
    if (size == 0) return body;
    body += text.substr(end + 2, size);
    at = end + 2 + size + 2;
  }
}

}  // namespace

PlainConnection::PlainConnection(std::uint16_t port)
    : _socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("nobody listens");
}

PlainConnection::~PlainConnection() { ::close(_socket); }

void PlainConnection::send(const std::string& bytes) const {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const auto count = ::send(_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return;  // the server has heard enough
    sent += static_cast<std::size_t>(count);
  }
}

bool PlainConnection::hears(int milliseconds) const {
  pollfd waiting{.fd = _socket, .events = POLLIN, .revents = 0};
  return ::poll(&waiting, 1, milliseconds) > 0;
}

void PlainConnection::shrinkBuffer() const {
  const int size = 4096;
  ::setsockopt(_socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
}

bool PlainConnection::receiveMore() {
  if (!hears(longestSilence)) throw std::runtime_error("the server is silent behind: " + _unread);
  std::array<char, 65536> buffer{};
  const auto count = ::recv(_socket, buffer.data(), buffer.size(), 0);
  if (count > 0) _unread.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0;
}

std::string PlainConnection::receiveUntil(const std::string& text) {
  std::size_t at = 0;
  while ((at = _unread.find(text)) == std::string::npos) {
    if (!receiveMore()) throw std::runtime_error("the server ended behind: " + _unread);
  }
  const std::string received = _unread.substr(0, at + text.size());
  _unread.erase(0, received.size());
  return received;
}

std::string PlainConnection::receiveAll() {
  while (receiveMore()) {
  }
  return std::exchange(_unread, "");
}

std::string requestText(const std::string& method, const std::string& target,
                        const PlainHeaders& headers, const std::string& body) {
  std::string text = method + " " + target + " HTTP/1.1\r\n";
  for (const std::string& header : headers) text += header + "\r\n";
  if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return text + "\r\n" + body;
}

Answer parseAnswer(const std::string& text) {
  const auto end = text.find("\r\n\r\n");
  if (end == std::string::npos) throw std::runtime_error("no answer: " + text);
  Answer answer;
  std::istringstream lines(text.substr(0, end));
  std::string line;
  std::getline(lines, line);
  answer.status = std::stoi(line.substr(line.find(' ')));
  while (std::getline(lines, line)) {
    if (line.back() == '\r') line.pop_back();
    const auto colon = line.find(": ");
    std::string name = line.substr(0, colon);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    answer.headers[name] = line.substr(colon + 2);
  }
  const std::string body = text.substr(end + 4);
  answer.body = answer.headers.contains("transfer-encoding") ? withoutChunks(body) : body;
  return answer;
}

}  // namespace kite::test
