#include "Inspector/Explanation.h"

#include "Inspector/Mistakes.h"

#include "Collector/Checks/Credentials.h"
#include "Collector/Checks/Gunzip.h"
#include "Collector/Checks/RequestCheck.h"
#include "Collector/JSONText.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <array>
#include <charconv>

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;

constexpr int signatureCode = 603;

std::vector<Header> headersOf(const RequestRecord& request) {
  std::vector<Header> headers;
  dom::parser parser;
  dom::array pairs;
  if (parser.parse(request.headers).get(pairs) != simdjson::SUCCESS) return headers;
  for (const dom::element pair : pairs) {
    headers.push_back(
        {std::string(std::string_view(pair.at(0))), std::string(std::string_view(pair.at(1)))});
  }
  return headers;
}

/// The request as it came, as far as that was kept.
ReceivedRequest receivedOf(const RequestRecord& request, std::string body) {
  ReceivedRequest received{.method = request.method,
                           .target = request.path,
                           .headers = headersOf(request),
                           .body = std::move(body)};
  const auto host = received.header("Host");
  const std::string root = fmt::format("https://{}", host);
  if (request.endpoint.starts_with(root)) received.target = request.endpoint.substr(root.size());
  return received;
}

std::string signatureMember(const RequestRecord& request, const ReceivedRequest& received,
                            bool hasBody, std::string_view key) {
  if (request.errorCode != signatureCode || !hasBody) return "null";
  const auto explained = explainSignature(received, key);
  if (!explained) return "null";
  return fmt::format(R"({{"signed_text":{},"expected":{},"received":{},"mistake":{}}})",
                     quotedJSON(explained->signedText), quotedJSON(explained->expected),
                     quotedJSON(received.header("Wicket-Signature")),
                     explained->mistake ? quotedJSON(*explained->mistake) : "null");
}

std::string timestampMember(const RequestRecord& request, const ReceivedRequest& received) {
  const auto text = received.header("Wicket-Timestamp");
  double milliseconds = 0;
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), milliseconds);
  if (text.empty() || error != std::errc() || rest != text.data() + text.size()) return "null";
  const double skew = milliseconds / 1000 - request.receivedAt;
  const bool isInSeconds = std::abs(milliseconds - request.receivedAt) <= allowedSkew;
  return fmt::format(R"({{"skew":{},"mistake":{}}})", realJSON(skew),
                     isInSeconds ? R"("seconds instead of milliseconds")" : "null");
}

std::string whereMember(const RequestRecord& request, std::string_view body) {
  const auto text = request.message ? gunzip(body, largestText) : gunzip("", 0);
  const auto place = text ? placeOf(*request.message, *text) : std::nullopt;
  if (!place) return "null";
  return fmt::format(R"({{"path":{},"offset":{},"excerpt":{}}})", quotedJSON(place->path),
                     place->offset ? std::to_string(*place->offset) : "null",
                     quotedJSON(place->excerpt));
}

}  // namespace

std::string explanationMembers(const RequestRecord& request, const std::optional<std::string>& body,
                               std::string_view key) {
  const bool hasBody = body || request.bytes == 0;
  const ReceivedRequest received = receivedOf(request, body.value_or(""));
  const bool isRefused = request.isRefused() && request.message;
  return fmt::format(R"("headers":{},"signature":{},"timestamp":{},"where":{},"rule":{})",
                     request.headers, signatureMember(request, received, hasBody, key),
                     timestampMember(request, received),
                     isRefused && body ? whereMember(request, *body) : "null",
                     isRefused ? quotedJSON(*request.message) : "null");
}

}  // namespace kite::tool
