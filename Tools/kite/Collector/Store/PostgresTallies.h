#pragma once

#include "Collector/Store/PostgresConnection.h"
#include "Collector/Store/Tallies.h"

namespace kite::tool {

inline constexpr double secondsOfADay = 86400;

/// Writes counts. Within a transaction of its caller, which has the client's row.
void writeTallies(PostgresConnection& connection, const Tallies& tallies, double receivedAt);

inline constexpr std::string_view sessionColumnsOfPostgres =
    "seq, id, client_id, started, ended, has_ended, has_crashed, events, background, "
    "is_in_background";
SessionRecord sessionOf(const PostgresRows& rows, int row);

/// What the indexes take of a text that has no bound.
std::string indexed(std::string_view text);

}  // namespace kite::tool
