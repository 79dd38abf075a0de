#include "Collector/Store/PostgresSchema.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

constexpr std::chrono::seconds patience{60};

std::int64_t versionOf(PostgresConnection& connection) {
  if (connection.run("SELECT to_regclass('schema_versions')").isNull(0, 0)) return 0;
  return connection.run("SELECT coalesce(max(version), 0) FROM schema_versions").integer(0, 0);
}

std::int64_t newestVersion() { return static_cast<std::int64_t>(postgresMigrations().size()); }

void refuseNewer(std::int64_t version) {
  if (version <= newestVersion()) return;
  throw StoreError(
      fmt::format("its tables are of version {}, and this program knows versions up to {}: "
                  "use a newer program",
                  version, newestVersion()));
}

void upgrade(PostgresConnection& connection, Migrated& migrated) {
  PostgresTransaction transaction(connection);
  connection.run("SELECT pg_advisory_xact_lock(0, 0)");  // one upgrades, others wait for it
  migrated.from = versionOf(connection);
  refuseNewer(migrated.from);
  connection.run(
      "CREATE TABLE IF NOT EXISTS schema_versions(version integer PRIMARY KEY, "
      "applied_at timestamptz NOT NULL DEFAULT now())");
  const auto steps = postgresMigrations();
  for (migrated.to = migrated.from; migrated.to < newestVersion(); ++migrated.to) {
    connection.run(steps[static_cast<std::size_t>(migrated.to)]);
    connection.run(fmt::format("INSERT INTO schema_versions VALUES({})", migrated.to + 1));
  }
  transaction.commit();
}

}  // namespace

void requireSchema(PostgresConnection& connection) {
  const auto version = versionOf(connection);
  refuseNewer(version);
  if (version == newestVersion()) return;
  throw StoreError(fmt::format(
      "{}: run \"kite collect migrate --db ADDRESS\" as the owner of the database",
      version == 0 ? "it has no tables"
                   : fmt::format("its tables are of version {}, and this program wants {}", version,
                                 newestVersion())));
}

void requireRights(PostgresConnection& connection) {
  const auto missing = connection.run(R"(
    SELECT string_agg(lower(may) || ' ' || what, ', ') FROM (VALUES
      ('events', 'SELECT'), ('events', 'INSERT'), ('identifiers', 'SELECT'),
      ('identifiers', 'INSERT'), ('requests', 'SELECT'), ('requests', 'INSERT'),
      ('clients', 'SELECT'), ('clients', 'INSERT'), ('clients', 'UPDATE'),
      ('type_counts', 'SELECT'), ('type_counts', 'INSERT'), ('type_counts', 'UPDATE'),
      ('sessions', 'SELECT'), ('sessions', 'INSERT'), ('sessions', 'UPDATE'),
      ('received_requests', 'INSERT'), ('refused_bodies', 'INSERT')) AS needed(what, may)
    WHERE NOT has_table_privilege(what, may))");
  if (missing.isNull(0, 0)) return;
  throw StoreError(
      fmt::format("its user may not {}: grant it the role kite_collector", missing.text(0, 0)));
}

Migrated migrate(const std::string& url, std::optional<std::int64_t> keepDays) {
  PostgresConnection connection(url, patience);
  Migrated migrated;
  upgrade(connection, migrated);
  connection.startClock();
  connection.run("SELECT make_partitions(extract(epoch FROM now())::double precision)");
  // A request's id is of no use once its timestamp is refused, which is after minutes.
  connection.run("DELETE FROM requests WHERE received_at < extract(epoch FROM now()) - 172800");
  if (keepDays) {
    const auto dropped = connection.run(fmt::format(
        "SELECT drop_partitions(extract(epoch FROM now())::double precision - {} * 86400.0)",
        *keepDays));
    migrated.droppedDays = dropped.integer(0, 0);
  }
  return migrated;
}

}  // namespace kite::tool
