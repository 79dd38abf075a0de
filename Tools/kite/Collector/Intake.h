#pragma once

#include "Collector/RequestReport.h"
#include "Collector/Server/HTTPServer.h"
#include "Collector/Store/EventStore.h"

#include <memory>
#include <optional>
#include <string>

namespace kite::tool {

/// A reply and what is told about it. With the status 0 the connection is reset.
struct Outcome {
  Reply reply;
  RequestReport report;
  std::vector<RepeatedEvent> repeated = {};
};

/// An error reply with the body that clients of the service read.
Outcome refuse(const ReceivedRequest& request, const Refusal& refusal);

/// Takes uploads in: checks them, stores them, answers them. Used by one thread at a time.
class Intake {
 public:
  Intake(std::string key, std::unique_ptr<EventStore> store)
      : _key(std::move(key)), _store(std::move(store)) {}

  /// `now` is in seconds since 1970. An accepted batch is on disk before this returns.
  ///
  /// A request id is used up by a request whose signature holds, unless the database failed.
  Outcome receive(const ReceivedRequest& request, double now);

  EventStore& store() { return *_store; }

 private:
  template <class Operation>
  auto timed(const Operation& operation);
  Outcome tryToReceive(const ReceivedRequest& request, double now);
  Outcome checkAndStore(const ReceivedRequest& request, double now);
  Outcome receive(const ReceivedRequest& request, const Sender& sender, double now);

  std::string _key;
  std::unique_ptr<EventStore> _store;
  std::optional<double> _storeSeconds;  // that the request at hand spent in it
};

}  // namespace kite::tool
