#pragma once

#include "Collector/Store/PostgresConnection.h"

namespace kite::tool {

inline constexpr std::string_view eventColumnsOfPostgres =
    "seq, id, type, timestamp, request_timestamp, received_at, app, client_id, tester, user_info, "
    "user_ids, data, duplicates";
EventRecord eventOf(const PostgresRows& rows, int row);

inline constexpr std::string_view requestColumnsOfPostgres =
    "seq, received_at, method, path, endpoint, status, error_code, message, fault, bytes, "
    "unpacked_bytes, new_events, duplicates, duration, attempt, client_id, request_id, headers, "
    "EXISTS (SELECT FROM refused_bodies WHERE refused_bodies.seq = received_requests.seq)";
RequestRecord requestOf(const PostgresRows& rows, int row);

/// The UUID under which an id is known: itself, or one made of what it is instead.
std::string identifierOf(const std::string& id);

/// The bytes of a hexadecimal text.
std::string bytesOf(std::string_view hexadecimal);

}  // namespace kite::tool
