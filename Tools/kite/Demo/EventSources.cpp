#include "Common/CommandFailure.h"
#include "Common/ParseJSON.h"
#include "Demo/Event.h"
#include "Store/OpenStore.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <memory>

namespace kite::tool {
namespace {

constexpr const char* pendingEventsKey = "kite_pending_events";
constexpr int longestLock = 5000;  // milliseconds that the collector may hold the database

JSONValue parsed(std::string_view text) {
  auto json = parseJSON(text);
  if (!json) throw CommandFailure(fmt::format("an event is damaged: {}", json.error()));
  return *std::move(json);
}

Event fromStored(const JSONValue& stored) {
  const auto* members = stored.object();
  const auto* id = members ? members->at("id") : nullptr;
  const auto* type = members ? members->at("type") : nullptr;
  const auto* data = members ? members->at("data") : nullptr;
  if (!id || !id->string() || !type || !type->string() || !data)
    throw CommandFailure("the queue holds something that is not an event");
  return {.id = *id->string(), .type = *type->string(), .data = *data};
}

using Connection = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

[[noreturn]] void fail(const std::filesystem::path& file, sqlite3* connection) {
  throw CommandFailure(fmt::format("{}: {}", file.string(), sqlite3_errmsg(connection)));
}

Connection connect(const std::filesystem::path& file) {
  sqlite3* raw = nullptr;
  const int result = sqlite3_open_v2(file.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
  Connection connection(raw, sqlite3_close);
  if (result != SQLITE_OK) fail(file, raw);
  sqlite3_busy_timeout(raw, longestLock);
  return connection;
}

std::string column(sqlite3_stmt* statement, int index) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, index));
  return {text ? text : "", static_cast<std::size_t>(sqlite3_column_bytes(statement, index))};
}

/// Calls `take` with every row that `query` finds.
template <class Take>
void read(const std::filesystem::path& database, const char* query, Take take) {
  const auto connection = connect(database);
  sqlite3_stmt* raw = nullptr;
  const int prepared = sqlite3_prepare_v2(connection.get(), query, -1, &raw, nullptr);
  const Statement statement(raw, sqlite3_finalize);
  if (prepared != SQLITE_OK) fail(database, connection.get());
  int step = sqlite3_step(raw);
  for (; step == SQLITE_ROW; step = sqlite3_step(raw)) take(raw);
  if (step != SQLITE_DONE) fail(database, connection.get());
}

}  // namespace

std::vector<Event> pendingEvents(const std::filesystem::path& state) {
  const auto stored =
      openStore({.state = state, .application = {}})->storage()->read(pendingEventsKey);
  if (!stored) return {};
  const auto list = parsed(stored->data().bytes);
  if (!list.array()) throw CommandFailure("the queue is not an array");
  std::vector<Event> events;
  for (const auto& element : *list.array()) events.push_back(fromStored(element));
  return events;
}

std::vector<Event> deliveredEvents(const std::filesystem::path& database) {
  std::vector<Event> events;
  read(database, "SELECT id, type, data, duplicates FROM events ORDER BY rowid",
       [&](sqlite3_stmt* row) {
         events.push_back({.id = column(row, 0),
                           .type = column(row, 1),
                           .data = parsed(column(row, 2)),
                           .duplicates = sqlite3_column_int64(row, 3)});
       });
  return events;
}

std::size_t deliveredCount(const std::filesystem::path& database) {
  std::size_t count = 0;
  read(database, "SELECT count(*) FROM events",
       [&](sqlite3_stmt* row) { count = static_cast<std::size_t>(sqlite3_column_int64(row, 0)); });
  return count;
}

}  // namespace kite::tool
