#include "Collector/Store/EventStore.h"

#include "Support/TemporaryFolder.h"
#include "Tool/CollectorDatabase.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using ::testing::HasSubstr;

/// A file as it was made before events were counted and requests kept.
constexpr const char* olderTables = R"(
  CREATE TABLE events(
    id TEXT PRIMARY KEY, type TEXT NOT NULL, timestamp REAL NOT NULL,
    request_timestamp REAL NOT NULL, received_at REAL NOT NULL, app TEXT NOT NULL,
    client_id TEXT NOT NULL, tester INTEGER NOT NULL, user_info TEXT NOT NULL,
    user_ids TEXT NOT NULL, data TEXT NOT NULL, duplicates INTEGER NOT NULL DEFAULT 0);
  CREATE TABLE requests(
    request_id TEXT PRIMARY KEY, received_at REAL NOT NULL, client_id TEXT NOT NULL,
    status INTEGER NOT NULL, error_code INTEGER);
  CREATE TABLE clients(client_id TEXT PRIMARY KEY, newest_timestamp REAL NOT NULL);
  INSERT INTO events VALUES('s', 'Session', 10, 15, 20, 'app', 'c', 1, '{}', '{}',
    '{"subtype":"session_start"}', 2);
  INSERT INTO events VALUES('a', 'UserAction', 12, 15, 20, 'app', 'c', 1, '{}', '{}',
    '{"action_kind":"buy","session_id":"s"}', 1);
)";

class SQLiteUpgrade : public ::testing::Test {
 protected:
  SQLiteUpgrade() { ::sqlite3_close(opened()); }

  void openStore() { ASSERT_TRUE(tool::openStore(file)); }

  TemporaryFolder folder;
  const std::string file = folder.path() / "events.db";

 private:
  sqlite3* opened() const {
    sqlite3* database = nullptr;
    sqlite3_open(file.c_str(), &database);
    EXPECT_EQ(sqlite3_exec(database, olderTables, nullptr, nullptr, nullptr), SQLITE_OK);
    return database;
  }
};

TEST_F(SQLiteUpgrade, countsWhatAnOlderFileHolds) {
  openStore();
  const auto reader = tool::openReader(file);
  ASSERT_TRUE(reader);
  const auto totals = (*reader)->totals();
  EXPECT_EQ(totals.events, 2);
  EXPECT_EQ(totals.duplicates, 3);
  EXPECT_EQ(totals.sessions, 1);
  EXPECT_EQ(totals.oldest, 10);
  EXPECT_EQ((*reader)->clients(9).size(), 1U);
}

TEST_F(SQLiteUpgrade, countsItOnce) {
  openStore();
  openStore();
  const auto reader = tool::openReader(file);
  ASSERT_TRUE(reader);
  EXPECT_EQ((*reader)->totals().events, 2);
}

TEST_F(SQLiteUpgrade, leavesTheTableOfEventsAsItIs) {
  const std::string columns = "SELECT name, type FROM pragma_table_info('events')";
  const std::string before = query(file, columns);
  openStore();
  EXPECT_EQ(query(file, columns), before);
  EXPECT_THAT(before, HasSubstr("user_info TEXT"));
}

TEST_F(SQLiteUpgrade, isNotAReadersBusiness) { EXPECT_FALSE(tool::openReader(file)); }

}  // namespace
}  // namespace kite::test
