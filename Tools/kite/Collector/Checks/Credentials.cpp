#include "Collector/Checks/Credentials.h"

#include "Collector/Checks/Signature.h"
#include "Collector/Checks/UUIDText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>

namespace kite::tool {
namespace {

struct HeaderRule {
  std::string_view name;
  bool (*fits)(std::string_view value);
  std::string_view form;
  Refusal (*refuse)(std::string message);
};

bool isAnyText(std::string_view) { return true; }
bool isJSONType(std::string_view value) { return value == "application/json"; }
bool isGzip(std::string_view value) { return value == "gzip"; }
bool isFlag(std::string_view value) { return value == "true" || value == "false"; }
bool isProtocol(std::string_view value) { return value == "Sha512" || value == "Sha256"; }

bool isDigit(char letter) { return letter >= '0' && letter <= '9'; }

bool isWholeNumber(std::string_view value) {
  const bool hasLeadingZero = value.size() > 1 && value.front() == '0';
  return value.size() <= 18 && !hasLeadingZero && std::ranges::all_of(value, isDigit);
}

bool isLowerHexadecimal(std::string_view value) {
  return std::ranges::all_of(
      value, [](char letter) { return isDigit(letter) || (letter >= 'a' && letter <= 'f'); });
}

constexpr std::array headerRules{
    HeaderRule{"Host", isAnyText, "", invalidFormat},
    HeaderRule{"Content-Type", isJSONType, "application/json", invalidFormat},
    HeaderRule{"Content-Encoding", isGzip, "gzip", invalidFormat},
    HeaderRule{"Lumo-Id", isAnyText, "", invalidFormat},
    HeaderRule{"Kite-Client-ID", isAnyText, "", invalidFormat},
    HeaderRule{"Kite-Tester", isFlag, "true or false", invalidFormat},
    HeaderRule{"Kite-Version", isAnyText, "", invalidFormat},
    HeaderRule{"Wicket-Protocol", isProtocol, "Sha512 or Sha256", invalidFormat},
    HeaderRule{"Wicket-Timestamp", isWholeNumber, "whole milliseconds without leading zeros",
               invalidFormat},
    HeaderRule{"Wicket-Request-Id", isUpperCaseUUID, "an upper-case UUID", malformedRequestID},
    HeaderRule{"Wicket-Signature", isLowerHexadecimal, "lower-case hexadecimal", wrongSignature}};

std::optional<Refusal> refusedHeader(const ReceivedRequest& request) {
  for (const HeaderRule& rule : headerRules) {
    if (request.header(rule.name).empty()) {
      return missingData(fmt::format("the header {} is missing", rule.name));
    }
  }
  for (const HeaderRule& rule : headerRules) {
    if (request.count(rule.name) > 1) {
      return invalidFormat(fmt::format("the header {} is repeated", rule.name));
    }
    if (!rule.fits(request.header(rule.name))) {
      return rule.refuse(fmt::format("the header {} must be {}", rule.name, rule.form));
    }
  }
  return std::nullopt;
}

bool isSignedWith(const ReceivedRequest& request, std::string_view key) {
  const auto expected = signatureOf({.host = request.header("Host"),
                                     .target = request.target,
                                     .body = request.body,
                                     .timestamp = request.header("Wicket-Timestamp"),
                                     .requestID = request.header("Wicket-Request-Id")},
                                    request.header("Wicket-Protocol"), key);
  return expected && isSameSignature(*expected, request.header("Wicket-Signature"));
}

double secondsOf(std::string_view milliseconds) {
  std::int64_t number = 0;
  std::from_chars(milliseconds.data(), milliseconds.data() + milliseconds.size(), number);
  return static_cast<double>(number) / 1000;
}

}  // namespace

Result<Sender, Refusal> authenticate(const ReceivedRequest& request, std::string_view key,
                                     double now) {
  if (auto refusal = refusedHeader(request)) return Failure{*std::move(refusal)};
  if (!isSignedWith(request, key)) {
    return Failure{wrongSignature("the signature does not match the request")};
  }
  const double age = now - secondsOf(request.header("Wicket-Timestamp"));
  if (age > allowedSkew) return Failure{replayed("the request is too old")};
  if (age < -allowedSkew) return Failure{replayed("the request is from the future")};
  return Sender{.requestID = std::string(request.header("Wicket-Request-Id")),
                .app = std::string(request.header("Lumo-Id")),
                .clientID = std::string(request.header("Kite-Client-ID")),
                .isTester = request.header("Kite-Tester") == "true"};
}

}  // namespace kite::tool
