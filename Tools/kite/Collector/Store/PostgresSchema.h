#pragma once

#include "Collector/Store/PostgresConnection.h"

namespace kite::tool {

/// Throws a `StoreError` unless the database has the tables that this program knows.
void requireSchema(PostgresConnection& connection);
/// Throws a `StoreError` unless the session's role may do all that a collector does.
void requireRights(PostgresConnection& connection);

/// What a migration did.
struct Migrated {
  std::int64_t from = 0;  ///< version of the tables; 0 when there were none
  std::int64_t to = 0;
  std::int64_t droppedDays = 0;
};

/// Makes or changes the tables, the views and the roles, makes the partitions of the next days,
/// and, if `keepDays` is given, drops what is older. Throws a `StoreError`.
Migrated migrate(const std::string& url, std::optional<std::int64_t> keepDays);

/// The statements that lead from each version of the tables to the next.
std::vector<std::string> postgresMigrations();

}  // namespace kite::tool
