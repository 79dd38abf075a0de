#include "EndToEnd/Events.h"

#include "EndToEnd/Processes.h"

#include <simdjson.h>
#include <sqlite3.h>

#include <memory>
#include <stdexcept>

namespace kite::test {
namespace {

using simdjson::dom::element;

std::string text(element object, const char* key) {
  std::string_view value;
  return object[key].get(value) == simdjson::SUCCESS ? std::string(value) : "";
}

std::int64_t integer(element object, const char* key) {
  std::int64_t value = 0;
  return object[key].get(value) == simdjson::SUCCESS ? value : 0;
}

Event parseEvent(element event) {
  return {.id = text(event, "id"),
          .type = text(event, "type"),
          .timestamp = event["timestamp"].get_double().value(),
          .data = simdjson::minify(event["data"].value()),
          .userInfo = simdjson::minify(event["user"]["info"].value()),
          .userIDs = simdjson::minify(event["user"]["ids"].value())};
}

std::string column(sqlite3_stmt* statement, int index) {
  return reinterpret_cast<const char*>(sqlite3_column_text(statement, index));
}

Event rowEvent(sqlite3_stmt* row) {
  return {.id = column(row, 0),
          .type = column(row, 1),
          .timestamp = sqlite3_column_double(row, 2),
          .requestTimestamp = sqlite3_column_double(row, 3),
          .data = column(row, 4),
          .userInfo = column(row, 5),
          .userIDs = column(row, 6),
          .duplicates = sqlite3_column_int64(row, 7)};
}

}  // namespace

std::vector<Event> queued(const std::filesystem::path& state) {
  const auto queue = run({"queue", "--state", state});
  if (queue.status != 0) throw std::runtime_error(queue.errors);
  simdjson::dom::parser parser;
  std::vector<Event> events;
  const simdjson::padded_string padded(queue.output);
  for (const auto event : parser.parse(padded).get_array()) events.push_back(parseEvent(event));
  return events;
}

std::vector<Event> collected(const std::filesystem::path& database) {
  sqlite3* connection = nullptr;
  sqlite3_open_v2(database.c_str(), &connection, SQLITE_OPEN_READONLY, nullptr);
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> closer(connection, sqlite3_close);
  sqlite3_busy_timeout(connection, 5000);
  sqlite3_stmt* row = nullptr;
  sqlite3_prepare_v2(connection,
                     "SELECT id, type, timestamp, request_timestamp, data, user_info, user_ids, "
                     "duplicates FROM events ORDER BY rowid",
                     -1, &row, nullptr);
  const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> finalizer(row, sqlite3_finalize);
  std::vector<Event> events;
  int step = SQLITE_ERROR;
  while (row && (step = sqlite3_step(row)) == SQLITE_ROW) events.push_back(rowEvent(row));
  if (step != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(connection));
  return events;
}

std::vector<std::string> types(const std::vector<Event>& events) {
  std::vector<std::string> result;
  for (const auto& event : events) result.push_back(event.type);
  return result;
}

Request parseRequest(const std::string& line) {
  simdjson::dom::parser parser;
  const simdjson::padded_string padded(line);
  const element request = parser.parse(padded).value();
  return {.status = integer(request, "status"),
          .errorCode = integer(request, "error_code"),
          .events = integer(request, "events"),
          .newEvents = integer(request, "new"),
          .fault = text(request, "fault")};
}

}  // namespace kite::test
