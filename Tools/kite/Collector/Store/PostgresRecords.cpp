#include "Collector/Store/PostgresRecords.h"

#include "Collector/Checks/UUIDText.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <simdjson.h>

#include <array>

namespace kite::tool {
namespace {

std::optional<std::string> textOrNothing(const PostgresRows& rows, int row, int column) {
  return rows.isNull(row, column) ? std::nullopt : std::optional(rows.text(row, column));
}

int digit(char letter) { return letter <= '9' ? letter - '0' : letter - 'a' + 10; }

/// The database puts blanks into its JSON text.
std::string withoutBlanks(const std::string& json) {
  std::string compact(json.size(), '\0');
  std::size_t size = 0;
  if (simdjson::minify(json.data(), json.size(), compact.data(), size)) return json;
  compact.resize(size);
  return compact;
}

}  // namespace

std::string identifierOf(const std::string& id) {
  if (isUpperCaseUUID(id)) return id;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(id.data(), id.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
  std::string hexadecimal;
  for (std::size_t i = 0; i < 16; ++i) hexadecimal += fmt::format("{:02x}", digest[i]);
  return hexadecimal;
}

EventRecord eventOf(const PostgresRows& rows, int row) {
  return {.seq = rows.integer(row, 0),
          .id = rows.text(row, 1),
          .type = rows.text(row, 2),
          .timestamp = rows.real(row, 3),
          .requestTimestamp = rows.real(row, 4),
          .receivedAt = rows.real(row, 5),
          .app = rows.text(row, 6),
          .client = rows.text(row, 7),
          .isTester = rows.flag(row, 8),
          .userInfo = withoutBlanks(rows.text(row, 9)),
          .userIDs = withoutBlanks(rows.text(row, 10)),
          .data = withoutBlanks(rows.text(row, 11)),
          .duplicates = rows.integer(row, 12)};
}

RequestRecord requestOf(const PostgresRows& rows, int row) {
  RequestRecord request{.seq = rows.integer(row, 0),
                        .receivedAt = rows.real(row, 1),
                        .method = rows.text(row, 2),
                        .path = rows.text(row, 3),
                        .endpoint = rows.text(row, 4),
                        .status = static_cast<int>(rows.integer(row, 5)),
                        .message = textOrNothing(rows, row, 7),
                        .fault = textOrNothing(rows, row, 8),
                        .bytes = rows.integer(row, 9),
                        .newEvents = rows.integer(row, 11),
                        .duplicates = rows.integer(row, 12),
                        .duration = rows.real(row, 13),
                        .attempt = rows.integer(row, 14),
                        .client = textOrNothing(rows, row, 15),
                        .requestID = textOrNothing(rows, row, 16),
                        .headers = rows.text(row, 17),
                        .hasBody = rows.flag(row, 18)};
  if (!rows.isNull(row, 6)) request.errorCode = static_cast<int>(rows.integer(row, 6));
  if (!rows.isNull(row, 10)) request.unpackedBytes = rows.integer(row, 10);
  return request;
}

std::string bytesOf(std::string_view hexadecimal) {
  std::string bytes;
  for (std::size_t at = 0; at + 1 < hexadecimal.size(); at += 2) {
    bytes += static_cast<char>((digit(hexadecimal[at]) << 4) | digit(hexadecimal[at + 1]));
  }
  return bytes;
}

}  // namespace kite::tool
