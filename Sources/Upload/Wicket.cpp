#include "Upload/Wicket.h"

#include <Kite/Base/FatalError.h>
#include <Kite/Platform/Lockwork.h>

#include "JSON/UTF8.h"

#include <cstdint>
#include <string_view>

namespace kite::Wicket {
namespace {

std::string headerText(Protocol wicketProtocol) {
  return wicketProtocol == Protocol::sha512 ? "Sha512" : "Sha256";
}

Lockwork::Algorithm algorithm(Protocol wicketProtocol) {
  return wicketProtocol == Protocol::sha512 ? Lockwork::Algorithm::sha512
                                            : Lockwork::Algorithm::sha256;
}

std::string milliseconds(Date now) {
  constexpr double limit = 9'223'372'036'854'775'808.0;  // 2^63
  const double exact = now.secondsSince1970 * 1000;
  const bool fits = exact >= -limit && exact < limit;
  if (!fits) fatalError("The time of a request does not fit into 64-bit milliseconds");
  return std::to_string(static_cast<std::int64_t>(exact));
}

std::string withoutTransportSecurity(std::string url) {
  constexpr std::string_view secure = "https://";
  constexpr std::string_view plain = "http://";
  for (std::size_t at = 0; (at = url.find(secure, at)) != std::string::npos; at += plain.size())
    url.replace(at, secure.size(), plain);
  return url;
}

/// Feeds the hexadecimal text of `bytes` without building the whole of it.
void updateWithHexadecimal(Lockwork::HMAC& code, std::string_view bytes) {
  constexpr std::size_t atOnce = 4096;
  for (std::size_t at = 0; at < bytes.size(); at += atOnce)
    code.update(Lockwork::hexadecimal(bytes.substr(at, atOnce)));
}

}  // namespace

HeaderFields computeHeaders(const Arguments& request) {
  return {{"Wicket-Protocol", headerText(request.wicketProtocol)},
          {"Wicket-Timestamp", milliseconds(request.now)},
          {"Wicket-Request-Id", request.requestId.text()},
          {"Wicket-Signature", signature(request)}};
}

std::string signature(const Arguments& request) {
  const std::string timestamp = milliseconds(request.now);
  if (!isUTF8(request.secret)) return "";
  Lockwork::HMAC code(algorithm(request.wicketProtocol), request.secret);
  code.update(withoutTransportSecurity(request.url.absoluteString()));
  code.update(":");
  if (request.body) updateWithHexadecimal(code, request.body->bytes);
  code.update(":");
  code.update(timestamp);
  code.update(":");
  code.update(request.requestId.text());
  return Lockwork::hexadecimal(code.finish().bytes);
}

}  // namespace kite::Wicket
