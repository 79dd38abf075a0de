#pragma once

#include "Events/KiteEvent.h"

namespace kite {

class ExperimentSegmentsReceived {
 public:
  ExperimentSegmentsReceived(std::string id, double timestamp, const Shared<User>& user)
      : _id(std::move(id)), _timestamp(timestamp), _user(user) {}

  EventType type() const { return EventType::Case::experimentSegmentsReceived; }
  const std::string& id() const { return _id; }
  double timestamp() const { return _timestamp; }
  std::optional<double> requestTimestamp() const { return std::nullopt; }
  const Shared<User>& user() const { return _user; }
  JSONValue::Object data() const { return {}; }

 private:
  std::string _id;
  double _timestamp;
  Shared<User> _user;
};

static_assert(KiteEvent<ExperimentSegmentsReceived>);

}  // namespace kite
