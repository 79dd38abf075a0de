#pragma once

#include <string>

namespace CLI {
class App;
}

namespace kite::tool {

/// Adds `migrate` to `collect`.
CLI::App* addMigrateCommand(CLI::App& collect);

/// Adds the option for a file that holds the password of a PostgreSQL database.
void addPasswordFile(CLI::App& command);

}  // namespace kite::tool
