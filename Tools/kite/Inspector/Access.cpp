#include "Inspector/Access.h"

#include "Collector/Checks/Signature.h"
#include "Collector/JSONText.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <stdexcept>

namespace kite::tool {
namespace {

bool isAnyAddress(std::string_view host) { return host == "0.0.0.0" || host == "::"; }

/// An address in digits is nobody's name, so no name server can lead elsewhere with it.
bool isAddress(std::string_view host) {
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  std::array<unsigned char, sizeof(in6_addr)> address{};
  const std::string text(host);
  return ::inet_pton(AF_INET, text.c_str(), address.data()) == 1 ||
         ::inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

std::string_view cookieOf(std::string_view cookies, const std::string& name) {
  while (!cookies.empty()) {
    const auto end = std::min(cookies.find(';'), cookies.size());
    auto each = cookies.substr(0, end);
    each.remove_prefix(std::min(each.find_first_not_of(' '), each.size()));
    if (each.starts_with(name + "=")) return each.substr(name.size() + 1);
    cookies.remove_prefix(std::min(end + 1, cookies.size()));
  }
  return "";
}

}  // namespace

std::string makeToken() {
  std::array<unsigned char, 24> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("the system gives no random bytes");
  }
  std::string token;
  for (const unsigned char byte : bytes) token += fmt::format("{:02x}", byte);
  return token;
}

Result<std::string, std::string> tokenOfFile(const std::string& path) {
  const int made = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (made >= 0) {
    const std::string token = makeToken();
    const std::string line = token + "\n";
    const bool isWritten =
        ::write(made, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    ::close(made);
    if (isWritten) return token;
    return Failure{"cannot write the token into " + path};
  }
  std::string token;
  std::getline(std::ifstream(path) >> std::ws, token);
  constexpr std::size_t shortest = 16;
  const bool isPlain =
      std::ranges::all_of(token, [](unsigned char letter) { return std::isalnum(letter) != 0; });
  if (token.size() >= shortest && isPlain) return token;
  return Failure{path + " holds no token of 16 or more letters and digits"};
}

std::optional<Reply> Access::refusal(const ReceivedRequest& request, const Target& target) const {
  if (request.count("Host") != 1 || !isOwnHost(request.header("Host"))) {
    return errorReply(403, "the Host is not the inspector's");
  }
  if (!isOwnOrigin(request)) return errorReply(403, "the request comes from another page");
  if (!hasToken(request, target)) {
    return errorReply(401,
                      "the token is missing or wrong; open the address that the collector printed");
  }
  return std::nullopt;
}

std::optional<Reply> Access::entrance(const ReceivedRequest& request, const Target& target) const {
  if (!target.members.contains("token") || request.method != "GET") return std::nullopt;
  const auto path = request.path();
  return Reply{.status = 303,
               .headers = {{"Location", std::string(path) + queryWithout(request.target, "token")},
                           {"Set-Cookie", fmt::format("{}={}; HttpOnly; SameSite=Strict; Path=/",
                                                      cookie(), _token)}},
               .body = ""};
}

bool Access::isOwnHost(std::string_view host) const {
  const std::string port = fmt::format(":{}", _port);
  std::string_view name = host;
  if (name.ends_with(port)) {
    name.remove_suffix(port.size());
  } else if (_port != 80) {
    return false;
  }
  if (name == "localhost" || name == "127.0.0.1" || name == "[::1]") return true;
  if (isAnyAddress(_host)) return isAddress(name);
  return name == _host || name == "[" + _host + "]";
}

bool Access::isOwnOrigin(const ReceivedRequest& request) const {
  if (request.count("Origin") > 0 &&
      request.header("Origin") != fmt::format("http://{}", request.header("Host"))) {
    return false;
  }
  const auto site = request.header("Sec-Fetch-Site");
  return request.count("Sec-Fetch-Site") == 0 || site == "same-origin" || site == "none";
}

bool Access::hasToken(const ReceivedRequest& request, const Target& target) const {
  constexpr std::string_view bearer = "Bearer ";
  const auto authorization = request.header("Authorization");
  if (authorization.starts_with(bearer)) {
    return isSameSignature(authorization.substr(bearer.size()), _token);
  }
  if (target.members.contains("token")) return isSameSignature(target.member("token"), _token);
  return isSameSignature(cookieOf(request.header("Cookie"), cookie()), _token);
}

Reply errorReply(int status, std::string_view message) {
  return {.status = status,
          .headers = {{"Content-Type", "application/json"}},
          .body = fmt::format(R"({{"error":{}}})", quotedJSON(message))};
}

void addSecurityHeaders(Reply& reply) {
  const std::array<Header, 6> headers{
      {{"Content-Security-Policy",
        "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
        "img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
       {"X-Content-Type-Options", "nosniff"},
       {"Referrer-Policy", "no-referrer"},
       {"Cross-Origin-Resource-Policy", "same-origin"},
       {"Cross-Origin-Opener-Policy", "same-origin"},
       {"Cache-Control", "no-store"}}};
  reply.headers.insert(reply.headers.end(), headers.begin(), headers.end());
}

}  // namespace kite::tool
