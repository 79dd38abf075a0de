#pragma once

#include "Collector/EventDatabase.h"
#include "Collector/HTTPSServer.h"
#include "Collector/RequestReport.h"

#include <memory>
#include <string>

namespace kite::tool {

/// A reply and what is told about it.
struct Outcome {
  Reply reply;
  RequestReport report;
};

/// An error reply with the body that clients of the service read.
Outcome refuse(const ReceivedRequest& request, const Refusal& refusal);

/// Takes uploads in: checks them, stores them, answers them. Used by one thread at a time.
class Intake {
 public:
  Intake(std::string key, std::unique_ptr<EventDatabase> database)
      : _key(std::move(key)), _database(std::move(database)) {}

  /// `now` is in seconds since 1970. An accepted batch is on disk before this returns.
  ///
  /// A request id is used up by a request whose signature holds, unless the database failed.
  Outcome receive(const ReceivedRequest& request, double now);

 private:
  Outcome receive(const ReceivedRequest& request, const Sender& sender, double now);

  std::string _key;
  std::unique_ptr<EventDatabase> _database;
};

}  // namespace kite::tool
