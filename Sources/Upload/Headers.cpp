#include "Upload/Headers.h"

#include "Upload/Wicket.h"

#include <utility>

namespace kite {

HeaderFields computeHeaders(const ComputeHeadersArguments& arguments) {
  HeaderFields headers = arguments.from.value_or(HeaderFields());
  headers["Content-Type"] = "application/json";
  headers["Content-Encoding"] = "gzip";
  headers["Lumo-Id"] = arguments.lumoID;
  headers["Kite-Client-ID"] = arguments.clientId;
  headers["Kite-Tester"] = arguments.isTestEnvironment ? "true" : "false";
  headers["Kite-Version"] = arguments.version;
  auto signing = Wicket::computeHeaders({.url = arguments.url,
                                         .body = arguments.body,
                                         .now = arguments.now,
                                         .requestId = arguments.wicketUUID,
                                         .secret = arguments.secret,
                                         .wicketProtocol = Wicket::Protocol::sha512});
  signing.merge(headers);
  return signing;
}

}  // namespace kite
