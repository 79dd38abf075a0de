#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

struct sqlite3;
struct sqlite3_stmt;

namespace kite::Linux {

/// What became of a database operation, reduced to what makes a difference.
enum class Outcome {
  done,
  failed,  ///< the disk is full, the file is busy, …: it may work another time
  damaged  ///< the file is not, or no longer, a database that can be read
};

/// A prepared statement, used again and again; one that could not be prepared is tried anew at its
/// next use. Parameters and columns count from 0. `sql` must live as long as the statement.
///
/// Bound bytes are not copied; they must live until the statement is run or rewound.
class Statement {
 public:
  Statement(sqlite3* database, const char* sql);

  Statement& bind(int parameter, std::string_view text);
  Statement& bindBytes(int parameter, std::string_view bytes);
  Statement& bind(int parameter, std::int64_t number);

  /// Runs a statement that has no rows.
  Outcome run();
  /// Runs a statement and hands every row to `body(*this)`, until there are no more.
  template <class Body>
  Outcome forEachRow(Body body) {
    const Rewinder rewinder{*this};
    while (step()) body(std::as_const(*this));
    return outcome();
  }

  std::string_view text(int column) const;
  std::int64_t number(int column) const;

 private:
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const;
  };

  struct Rewinder {
    Statement& statement;
    ~Rewinder() { statement.rewind(); }
  };

  sqlite3_stmt* prepared();
  Statement& took(int bound);
  bool step();
  Outcome outcome() const;
  void rewind();

  sqlite3* _database;
  const char* _sql;
  std::unique_ptr<sqlite3_stmt, Finalizer> _statement;
  int _code = 0;
  int _bound = 0;  // the first failure to bind, until the next use
};

/// An open SQLite database. One thread at a time.
class Database {
 public:
  enum class Access { readOnly, readWrite };

  /// Opens a file that exists, or "" for a database in memory; null when SQLite cannot open it.
  static std::unique_ptr<Database> open(const std::filesystem::path& file, Access access);

  Outcome execute(const char* sql);
  Statement prepare(const char* sql) { return {_handle.get(), sql}; }
  /// The first column of the first row.
  Outcome number(const char* sql, std::int64_t& result);
  Outcome text(const char* sql, std::string& result);

  /// Runs `body() -> Outcome` as one transaction, which is undone unless all of it is done.
  template <class Body>
  Outcome transaction(Body body) {
    const Undo undo{*this};
    auto outcome = execute("BEGIN IMMEDIATE");
    if (outcome == Outcome::done) outcome = body();
    if (outcome == Outcome::done) outcome = execute("COMMIT");
    return outcome;
  }

  /// Lets SQLite leave the end of each page alone; before there are any.
  void reserveForSums();
  /// Whether a page with a wrong sum is damage; at first it is, in a database that may be written.
  bool refusesWrongSums() const { return _refusesWrongSums; }
  void refuseWrongSums(bool isRefused);

  /// Whether the last statement that was run inserted, changed or deleted a row.
  bool hasChanged() const;
  /// Why the last operation failed, for a person.
  std::string message() const;

 private:
  struct Closer {
    void operator()(sqlite3* database) const;
  };
  using Handle = std::unique_ptr<sqlite3, Closer>;
  struct Undo {
    Database& database;
    ~Undo() { database.rollBack(); }
  };
  explicit Database(Handle handle) : _handle(std::move(handle)) {}
  /// Ends a transaction that is not committed.
  void rollBack();

  Handle _handle;
  bool _refusesWrongSums = false;
};

}  // namespace kite::Linux
