#pragma once

#include <libpq-fe.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kite::tool {

using PostgresSession = std::unique_ptr<PGconn, decltype(&PQfinish)>;

/// Whether a store's place names a PostgreSQL database.
bool isPostgresAddress(std::string_view place);

/// A place as it may be shown to people.
std::string withoutPassword(const std::string& place);

/// Where a database is, which may be at any of several hosts.
class PostgresAddress {
 public:
  /// Throws a `StoreError` when the text is no such address, or holds a password.
  explicit PostgresAddress(const std::string& url);

  /// Asks all hosts at once, so that one that does not answer costs nothing, and takes the first
  /// that is as the address wants it. Throws a `StoreAway` when none is by then.
  PostgresSession connect(std::chrono::steady_clock::time_point deadline) const;

 private:
  using Settings = std::vector<std::pair<std::string, std::string>>;

  std::vector<Settings> _hosts;  // what each connection is made with
};

/// What libpq says, in one line.
std::string oneLine(std::string_view message);

}  // namespace kite::tool
