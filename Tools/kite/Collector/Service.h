#pragma once

#include "Collector/Attempts.h"
#include "Collector/Fault.h"
#include "Collector/Intake.h"
#include "Collector/Metrics.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kite::tool {

struct ServiceOptions {
  std::string key;
  std::unique_ptr<EventStore> store;
  std::function<double()> clock;                     ///< seconds since 1970
  std::function<void(const RequestReport&)> report;  ///< called before each answer
  /// Called before an answer, when what it says is stored, with the events that came again.
  std::function<void(std::vector<RepeatedEvent>)> changed = nullptr;
};

/// A request, and when it came.
struct Arrived {
  ReceivedRequest request;
  double receivedAt;  ///< seconds since 1970
  std::chrono::steady_clock::time_point begin;
};

/// Routes requests, lets the faults strike and takes the uploads in. `handle` is for the server's
/// thread; the other operations may be called from any.
class Service : public std::enable_shared_from_this<Service> {
 public:
  explicit Service(ServiceOptions options);

  void handle(ReceivedRequest request, Exchange& exchange);
  FaultQueue& faults() { return _faults; }
  const Metrics& metrics() const { return _metrics; }

 private:
  void strike(const Fault& fault, Arrived arrived, Exchange& exchange);
  void takeIn(const Arrived& arrived, std::optional<std::string> fault, Exchange& exchange);
  void answer(const Arrived& arrived, Outcome outcome, Exchange& exchange);
  void tell(const Arrived& arrived, RequestReport report, std::vector<RepeatedEvent> repeated);
  void record(const Arrived& arrived, const RequestReport& report);

  Intake _intake;
  std::function<double()> _clock;
  std::function<void(const RequestReport&)> _report;
  std::function<void(std::vector<RepeatedEvent>)> _changed;
  FaultQueue _faults;
  Attempts _attempts;
  Metrics _metrics;
};

}  // namespace kite::tool
