#pragma once

#include "Collector/Attempts.h"
#include "Collector/Fault.h"
#include "Collector/Intake.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

inline constexpr std::string_view eventsPath = "/v4/events";
inline constexpr std::string_view healthPath = "/health";

struct CollectorStatistics {
  std::size_t requests = 0;    ///< all, of whatever kind
  std::size_t accepted = 0;    ///< uploads that were stored and answered with 200
  std::size_t refused = 0;     ///< requests that were answered with an error, other than by a fault
  std::size_t faults = 0;      ///< uploads that a fault struck
  std::size_t newEvents = 0;   ///< events stored
  std::size_t duplicates = 0;  ///< events received again
};

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
  CollectorStatistics statistics() const;

 private:
  void strike(const Fault& fault, Arrived arrived, Exchange& exchange);
  void takeIn(const Arrived& arrived, std::optional<std::string> fault, Exchange& exchange);
  void answer(const Arrived& arrived, Outcome outcome, Exchange& exchange);
  void tell(const Arrived& arrived, const RequestReport& report,
            std::vector<RepeatedEvent> repeated);
  void count(const RequestReport& report);

  Intake _intake;
  std::function<double()> _clock;
  std::function<void(const RequestReport&)> _report;
  std::function<void(std::vector<RepeatedEvent>)> _changed;
  FaultQueue _faults;
  Attempts _attempts;
  mutable std::mutex _mutex;
  CollectorStatistics _statistics;  // guarded by _mutex
};

}  // namespace kite::tool
