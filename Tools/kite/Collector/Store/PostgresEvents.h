#pragma once

#include "Collector/Store/PostgresConnection.h"
#include "Collector/Store/Tallies.h"

namespace kite::tool {

/// Adds the events that are new, counts those that are not, and tells of both. Within a transaction
/// of its caller.
void addEvents(PostgresConnection& connection, const Accepted& accepted, double receivedAt,
               Stored& stored, Tallies& tallies);

/// Begins such a transaction: it says from which number on it may add events.
inline constexpr const char* holdNumbers =
    "SELECT pg_advisory_xact_lock_shared(last_value) FROM event_numbers";
/// The lowest and the highest number that are in use; none is added any more between them. (The
/// query's snapshot is older than what it reads of the locks.)
inline constexpr const char* settledNumbers =
    "SELECT coalesce((SELECT min(seq) FROM events), 0), "
    "least(coalesce((SELECT max(seq) FROM events), 0), "
    "(SELECT min((classid::bigint << 32) | objid::bigint) FROM pg_locks "
    "WHERE locktype = 'advisory' AND objsubid = 1 AND mode = 'ShareLock' "
    "AND database = (SELECT oid FROM pg_database WHERE datname = current_database())))";

/// The same value as JSON text that the database takes: without U+0000 in texts, and with numbers
/// as they are read.
std::string storableJSON(const std::string& json);

}  // namespace kite::tool
