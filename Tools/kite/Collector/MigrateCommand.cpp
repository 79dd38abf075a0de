#include "Collector/MigrateCommand.h"

#include "Collector/SecretFile.h"
#include "Collector/Store/PostgresSchema.h"
#include "Common/CommandFailure.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <CLI/CLI.hpp>

#include <cstdio>

namespace kite::tool {
namespace {

struct MigrateArguments {
  std::string database;
  std::optional<std::int64_t> keepDays;
};

void runMigration(const MigrateArguments& arguments) {
  if (!isPostgresAddress(arguments.database)) {
    throw CLI::ValidationError("--db: a SQLite file needs no migration; give postgresql://…");
  }
  try {
    const Migrated done = migrate(arguments.database, arguments.keepDays);
    fmt::print("{{\"event\":\"migrated\",\"from\":{},\"to\":{},\"dropped_days\":{}}}\n", done.from,
               done.to, done.droppedDays);
  } catch (const StoreError& error) {
    throw CommandFailure(fmt::format("cannot migrate the database {}: {}",
                                     withoutPassword(arguments.database), error.what()));
  }
}

}  // namespace

void addPasswordFile(CLI::App& command) {
  // libpq takes it from the environment.
  const auto take = [](const std::string& password) {
    ::setenv("PGPASSWORD", password.c_str(), 1);
  };
  addSecretFile(command, "--db-password-file", take,
                "File whose first line is the password of a PostgreSQL database");
}

CLI::App* addMigrateCommand(CLI::App& collect) {
  auto arguments = std::make_shared<MigrateArguments>();
  CLI::App* command = collect.add_subcommand(
      "migrate", "Make or change the tables of a PostgreSQL database, and drop old days");
  command->add_option("--db", arguments->database, "Address of the database, as its owner")
      ->type_name("URL")
      ->required();
  command
      ->add_option("--keep-days", arguments->keepDays,
                   "Drop events that were received before so many days; all are kept by default")
      ->type_name("N")
      ->check(CLI::Range(1, 36500));
  addPasswordFile(*command);
  command->callback([arguments] { runMigration(*arguments); });
  return command;
}

}  // namespace kite::tool
