#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Server/Exchange.h"
#include "Inspector/Target.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kite::tool {

/// A text that nobody can guess, of letters and digits.
std::string makeToken();
/// That of the file; a new one, written there for its owner alone, when the file is not there. The
/// error is one line.
Result<std::string, std::string> tokenOfFile(const std::string& path);

/// Who may ask the inspector: who has its token, from a page of its own or from no page.
class Access {
 public:
  Access(std::string host, std::uint16_t port, std::string token)
      : _host(std::move(host)), _port(port), _token(std::move(token)) {}

  /// What a request is refused with, or nothing. A page that another name led here (rebinding) is
  /// refused by its Host, one from elsewhere by its Origin.
  std::optional<Reply> refusal(const ReceivedRequest& request, const Target& target) const;

  /// The answer to an address that carries the token: the cookie, and the address without it.
  std::optional<Reply> entrance(const ReceivedRequest& request, const Target& target) const;

 private:
  bool isOwnHost(std::string_view host) const;
  bool isOwnOrigin(const ReceivedRequest& request) const;
  bool hasToken(const ReceivedRequest& request, const Target& target) const;
  std::string cookie() const { return "kite_inspector_" + std::to_string(_port); }

  std::string _host;
  std::uint16_t _port;
  std::string _token;
};

/// An error as the inspector answers it.
Reply errorReply(int status, std::string_view message);
/// Headers of every answer.
void addSecurityHeaders(Reply& reply);

}  // namespace kite::tool
