#include "Inspector/Mistakes.h"

#include "Collector/Checks/Gunzip.h"
#include "Collector/Checks/RequestCheck.h"
#include "Collector/Checks/Signature.h"
#include "Common/LowerCase.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <vector>

namespace kite::tool {
namespace {

constexpr std::size_t largestTried = 4 * 1024 * 1024;  // bytes of a body
constexpr std::size_t shownOfBody = 24;                // hexadecimal digits at either end

std::string upperCase(std::string text) {
  for (char& letter : text) {
    if (letter >= 'a' && letter <= 'f') letter = static_cast<char>(letter - 'a' + 'A');
  }
  return text;
}

/// The texts that are signed.
struct Texts {
  std::string scheme;
  std::string host;
  std::string target;
  std::string body;  ///< in hexadecimal
  std::string timestamp;
  std::string requestID;

  std::string joined() const {
    return fmt::format("{}{}{}:{}:{}:{}", scheme, host, target, body, timestamp, requestID);
  }
};

Texts textsOf(const ReceivedRequest& request) {
  return {.scheme = "http://",
          .host = std::string(request.header("Host")),
          .target = request.target,
          .body = hexadecimal(request.body),
          .timestamp = std::string(request.header("Wicket-Timestamp")),
          .requestID = std::string(request.header("Wicket-Request-Id"))};
}

struct Attempted {
  std::string mistake;
  Texts texts;
};

void addHosts(std::vector<Attempted>& attempts, const Texts& right) {
  const auto colon = right.host.rfind(':');
  const std::string port = colon == std::string::npos ? "" : right.host.substr(colon);
  for (const std::string name : {"localhost", "127.0.0.1", "[::1]"}) {
    for (const std::string& host : {name + port, name}) {
      Texts texts = right;
      texts.host = host;
      attempts.push_back({fmt::format("another host: {}", host), std::move(texts)});
    }
  }
  Texts texts = right;
  texts.host = right.host.substr(0, colon);
  attempts.push_back({"the host without its port", std::move(texts)});
}

void addPaths(std::vector<Attempted>& attempts, const Texts& right) {
  const std::string path = right.target.substr(0, right.target.find('?'));
  for (const std::string& target :
       {std::string(), std::string("/"), path, path + "/", std::string("/v4/events"),
        std::string("/events"), path.substr(1)}) {
    if (target == right.target) continue;
    Texts texts = right;
    texts.target = target;
    attempts.push_back(
        {target.empty() ? "no path" : fmt::format("another path: {}", target), std::move(texts)});
  }
}

std::vector<Attempted> attemptsOf(const ReceivedRequest& request) {
  const Texts right = textsOf(request);
  std::vector<Attempted> attempts;
  const auto add = [&](std::string mistake, const std::function<void(Texts&)>& change) {
    attempts.push_back({std::move(mistake), right});
    change(attempts.back().texts);
  };
  add("https left in the scheme", [](Texts& texts) { texts.scheme = "https://"; });
  add("no scheme", [](Texts& texts) { texts.scheme = ""; });
  add("upper-case hexadecimal", [](Texts& texts) { texts.body = upperCase(texts.body); });
  add("seconds instead of milliseconds", [](Texts& texts) {
    texts.timestamp.resize(texts.timestamp.size() -
                           std::min<std::size_t>(3, texts.timestamp.size()));
  });
  add("the body left out", [](Texts& texts) { texts.body.clear(); });
  add("the body's bytes instead of their hexadecimal text",
      [&request](Texts& texts) { texts.body = request.body; });
  add("the request id in lower case",
      [](Texts& texts) { texts.requestID = lowerCased(texts.requestID); });
  if (const auto text = gunzip(request.body, largestText)) {
    add("the body before compression", [&text](Texts& texts) { texts.body = hexadecimal(*text); });
  }
  addHosts(attempts, right);
  addPaths(attempts, right);
  return attempts;
}

std::optional<std::string> mistakeOf(const ReceivedRequest& request, std::string_view protocol,
                                     std::string_view expected, std::string_view key) {
  const std::string received(request.header("Wicket-Signature"));
  if (lowerCased(received) == expected) return "upper-case hexadecimal";
  if (request.body.size() > largestTried) return std::nullopt;
  const std::string_view other = protocol == "Sha512" ? "Sha256" : "Sha512";
  const std::string right = textsOf(request).joined();
  if (hmacText(right, other, key) == received)
    return fmt::format("{} instead of {}", other, protocol);
  for (const Attempted& attempt : attemptsOf(request)) {
    if (hmacText(attempt.texts.joined(), protocol, key) == received) return attempt.mistake;
  }
  return std::nullopt;
}

/// The middle of a long body is left out.
std::string shortened(Texts texts) {
  if (texts.body.size() > 3 * shownOfBody) {
    texts.body = texts.body.substr(0, shownOfBody) + "…" +
                 texts.body.substr(texts.body.size() - shownOfBody);
  }
  return texts.joined();
}

}  // namespace

std::optional<ExplainedSignature> explainSignature(const ReceivedRequest& request,
                                                   std::string_view key) {
  const auto protocol = request.header("Wicket-Protocol");
  const auto expected = signatureOf({.host = request.header("Host"),
                                     .target = request.target,
                                     .body = request.body,
                                     .timestamp = request.header("Wicket-Timestamp"),
                                     .requestID = request.header("Wicket-Request-Id")},
                                    protocol, key);
  if (!expected) return std::nullopt;
  return ExplainedSignature{.signedText = shortened(textsOf(request)),
                            .expected = *expected,
                            .mistake = mistakeOf(request, protocol, *expected, key)};
}

}  // namespace kite::tool
