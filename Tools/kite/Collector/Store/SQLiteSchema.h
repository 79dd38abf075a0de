#pragma once

#include "Collector/Store/Statement.h"
#include "Collector/Store/Tallies.h"

namespace kite::tool {

/// The fixed table `events` has no more columns than it ever had: its rows are numbered by SQLite's
/// own number. A further table, or columns of one, is a higher version.
inline constexpr std::int64_t schemaVersion = 1;

/// Makes the tables that are missing, and counts what an older file holds.
void prepareSchema(Connection& connection);

/// Reads a row of `eventColumns`.
inline constexpr std::string_view eventColumns =
    "rowid, id, type, timestamp, request_timestamp, received_at, app, client_id, tester, "
    "user_info, user_ids, data, duplicates";
EventRecord eventOf(const Statement& row);

inline constexpr std::string_view sessionColumns =
    "seq, id, client_id, started, ended, has_ended, has_crashed, events, background, "
    "is_in_background";
SessionRecord sessionOf(const Statement& row);

/// Writes counts. Within a transaction of its caller.
class TallyWriter {
 public:
  explicit TallyWriter(Connection& connection);
  void write(const Tallies& tallies);

 private:
  void writeSession(const std::string& client, const std::string& id,
                    const std::vector<SessionNote>& notes);

  Statement _addType;
  Statement _addClient;
  Statement _findSession;
  Statement _saveSession;
};

}  // namespace kite::tool
