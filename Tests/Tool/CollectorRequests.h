#pragma once

#include "Collector/Checks/RequestCheck.h"
#include "Collector/Checks/Signature.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

inline void PrintTo(const Refusal& refusal, std::ostream* out) {
  *out << refusal.status << "/" << refusal.code << " " << refusal.message;
}

}  // namespace kite::tool

/// Requests as a client of the collection service makes them.
namespace kite::test {

inline const std::string key = "secret";
inline constexpr double now = 1765432200.25;  // the request's own time, in seconds
inline constexpr const char* anID = "79690975-FBDE-45B0-A2A3-7357AE2CC59B";
inline constexpr const char* anotherID = "E2A59A80-94EC-4328-A974-2E6D85EC51AE";
inline constexpr const char* aRequestID = "6F8852B6-5A4E-484B-99BD-0A8A6674FD93";
inline constexpr const char* anotherRequestID = "112B7D85-151D-4F7B-B58E-DF3FCD171D95";

/// The UUID with a number at its end.
inline std::string numbered(std::string id, int number) {
  const std::string digits = std::to_string(1'000'000 + number);
  return id.replace(id.size() - digits.size(), digits.size(), digits);
}

inline std::string gzipped(std::string_view text) {
  z_stream stream{};
  deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string bytes(deflateBound(&stream, static_cast<uLong>(text.size())), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(bytes.data());
  stream.avail_out = static_cast<uInt>(bytes.size());
  deflate(&stream, Z_FINISH);
  bytes.resize(stream.total_out);
  deflateEnd(&stream);
  return bytes;
}

/// `text` with `from`, which must be in it, replaced once.
inline std::string replaced(std::string text, std::string_view from, std::string_view to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from << " is not in " << text;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

inline std::string anEvent(std::string_view type, std::string_view data,
                           std::string_view id = anID) {
  return R"({"type":")" + std::string(type) + R"(","id":")" + std::string(id) +
         R"(","timestamp":1765432100.5,"request_timestamp":1765432200.0,"app":"trail-maps",)" +
         R"("user":{"info":{"country":"NZ"},"ids":{"user_id":"u1"}},"data":)" + std::string(data) +
         "}";
}

inline std::string aCustomEvent(std::string_view id = anID) {
  return anEvent("Purchase", R"({"price":9.5})", id);
}

inline std::string aBody(const std::vector<std::string>& events) {
  std::string body = R"({"events":[)";
  for (const std::string& event : events) body += (body.back() == '[' ? "" : ",") + event;
  return body + "]}";
}

inline tool::Header& header(tool::ReceivedRequest& request, std::string_view name) {
  return *std::ranges::find(request.headers, name, &tool::Header::name);
}

inline void sign(tool::ReceivedRequest& request) {
  header(request, "Wicket-Signature").value =
      tool::signatureOf({.host = request.header("Host"),
                         .target = request.target,
                         .body = request.body,
                         .timestamp = request.header("Wicket-Timestamp"),
                         .requestID = request.header("Wicket-Request-Id")},
                        request.header("Wicket-Protocol"), key)
          .value_or("00");
}

/// A request in order, sent at `now` and signed, with these bytes as its body.
inline tool::ReceivedRequest aRequestOf(std::string bytes,
                                        const std::string& requestID = aRequestID) {
  tool::ReceivedRequest request{.method = "POST",
                                .target = "/v4/events",
                                .headers = {{"Host", "127.0.0.1:8443"},
                                            {"Content-Type", "application/json"},
                                            {"Content-Encoding", "gzip"},
                                            {"Lumo-Id", "trail-maps"},
                                            {"Kite-Client-ID", "client-1"},
                                            {"Kite-Tester", "true"},
                                            {"Kite-Version", "1.0.0"},
                                            {"Wicket-Protocol", "Sha512"},
                                            {"Wicket-Timestamp", "1765432200250"},
                                            {"Wicket-Request-Id", requestID},
                                            {"Wicket-Signature", ""}},
                                .body = std::move(bytes)};
  sign(request);
  return request;
}

inline tool::ReceivedRequest aRequest(const std::string& json,
                                      const std::string& requestID = aRequestID) {
  return aRequestOf(gzipped(json), requestID);
}

}  // namespace kite::test
