#pragma once

#include <Kite/Base/Result.h>

#include "Collector/RequestCheck.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace kite::tool {

/// What a batch changed.
struct Stored {
  std::size_t newEvents;
  std::size_t duplicates;
  double newestTimestamp;  ///< of all events that the client ever sent
};

/// The accepted events and the requests that brought them, in one SQLite file. Used by one thread
/// at a time; other processes may read the file meanwhile. Errors are SQLite's texts.
class EventDatabase {
 public:
  /// Opens or makes the file, readable by its owner alone.
  static Result<std::unique_ptr<EventDatabase>, std::string> open(const std::string& path);
  ~EventDatabase();

  /// Whether a request of that id was stored or remembered before.
  Result<bool, std::string> hasSeen(const std::string& requestID);

  /// Stores the request and its new events; an event that is there already is only counted. All of
  /// it is on disk when this returns, or nothing of it. `receivedAt` is in seconds since 1970.
  Result<Stored, std::string> store(const Accepted& accepted, double receivedAt);

  /// Remembers a request of a known sender that was refused; gives an error or nothing.
  std::optional<std::string> remember(const Sender& sender, const Refusal& refusal,
                                      double receivedAt);

 private:
  struct Statements;

  EventDatabase();
  void prepare(const std::string& path);
  Stored storeAll(const Accepted& accepted, double receivedAt);

  struct Handle;
  std::unique_ptr<Handle> _handle;
  std::unique_ptr<Statements> _statements;
};

}  // namespace kite::tool
