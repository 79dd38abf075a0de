#pragma once

#include "Collector/Checks/Batch.h"
#include "Collector/Checks/Gunzip.h"
#include "Collector/Store/Statement.h"

#include <simdjson.h>

#include <cstdint>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kite::bench {

/// The least that an upload costs whoever keeps its events in SQLite: to inflate and parse the body
/// once, and to insert the rows with one prepared statement into a table like the collector's, one
/// synced transaction an upload.
class BareTable {
 public:
  explicit BareTable(const std::string& file)
      : _connection(created(file), tool::Connection::Access::readWrite) {
    _connection.execute("PRAGMA page_size = 8192; PRAGMA journal_mode = WAL");
    _connection.execute("PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = 4000");
    _connection.execute("PRAGMA cache_size = -65536");
    _connection.execute(
        "CREATE TABLE events(id TEXT PRIMARY KEY, type TEXT, timestamp REAL, request_timestamp "
        "REAL, received_at REAL, app TEXT, client_id TEXT, tester INTEGER, user_info TEXT, "
        "user_ids TEXT, data TEXT, duplicates INTEGER)");
    _insert.emplace(_connection, "INSERT INTO events VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0)");
  }

  /// `batch` is what the body holds.
  void store(const std::string& body, const tool::Batch& batch) {
    const auto json = tool::gunzip(body, largestText);
    if (!json || _parser.parse(*json).error() != simdjson::SUCCESS)
      throw std::runtime_error("the body cannot be read");
    tool::Transaction transaction(_connection);
    for (const auto& event : batch.events) {
      _insert
          ->with(event.id, event.type, event.timestamp, batch.requestTimestamp,
                 batch.requestTimestamp, app, client, std::int64_t{1}, event.userInfo,
                 event.userIDs, event.data)
          .run();
    }
    transaction.commit();
  }

 private:
  static constexpr std::size_t largestText = 64 * 1024 * 1024;
  static constexpr std::string_view app = "acme-trail-maps";
  static constexpr std::string_view client = "1";

  static std::string created(const std::string& file) {
    std::ofstream{file};
    return file;
  }

  tool::Connection _connection;
  std::optional<tool::Statement> _insert;
  simdjson::dom::parser _parser;
};

}  // namespace kite::bench
