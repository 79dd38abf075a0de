#pragma once

#include "Collector/Attempts.h"
#include "Collector/Fault.h"
#include "Collector/Intake.h"
#include "Collector/Metrics.h"
#include "Collector/Workers.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kite::tool {

struct ServiceOptions {
  std::string key;
  std::unique_ptr<EventStore> store = nullptr;       ///< that the server's thread stores into
  std::function<double()> clock;                     ///< seconds since 1970, from any thread
  std::function<void(const RequestReport&)> report;  ///< called before each answer
  /// Called before an answer, when what it says is stored, with the events that came again.
  std::function<void(std::vector<RepeatedEvent>)> changed = nullptr;

  /// In the place of `store`: as many threads store, each into one of these.
  std::vector<std::unique_ptr<EventStore>> pool = {};
  /// What waited longer for a thread has no time left to be stored.
  std::chrono::milliseconds longestWait{400};
  WorkBound bound = {};
  /// Called from those threads: `finish` is to be called on the server's.
  std::function<void()> wake = nullptr;
};

/// A request, and when it came.
struct Arrived {
  ReceivedRequest request;
  double receivedAt;  ///< seconds since 1970
  std::chrono::steady_clock::time_point begin;
};

/// Routes requests, lets the faults strike and takes the uploads in. `handle` and `finish` are for
/// the server's thread, where `report` and `changed` are called and answers are given; the other
/// operations may be called from any.
class Service : public std::enable_shared_from_this<Service> {
 public:
  explicit Service(ServiceOptions options);

  void handle(ReceivedRequest request, Exchange& exchange);
  /// Gives the answers to what the pool stored.
  void finish() { _workers->finish(); }
  /// Lets the pool end what it is at; what waits for it gets no answer.
  void stop() { _workers->stop(); }
  FaultQueue& faults() { return _faults; }
  const Metrics& metrics() const { return _metrics; }
  WorkLoad load() const { return _workers->load(); }
  std::string metricsText() const { return _metrics.text(load()); }

 private:
  using Arrival = std::shared_ptr<const Arrived>;
  /// What is answered; the intake is missing when there is no time for it.
  using Take = std::function<Outcome(Intake*)>;

  void strike(const Fault& fault, const Arrival& arrived, Exchange& exchange);
  void takeIn(const Arrival& arrived, const std::optional<std::string>& fault, Exchange& exchange);
  void answer(const Arrival& arrived, Outcome outcome, Exchange& exchange);
  void work(const Arrival& arrived, const Take& take, Exchange& exchange);
  Outcome takeAndRecord(const Arrived& arrived, const Take& take, Intake& intake);
  void conclude(const Arrived& arrived, Outcome outcome, Exchange* exchange);

  std::function<double()> _clock;
  std::function<void(const RequestReport&)> _report;
  std::function<void(std::vector<RepeatedEvent>)> _changed;
  std::chrono::milliseconds _longestWait;
  FaultQueue _faults;
  Attempts _attempts;
  Metrics _metrics;
  std::unique_ptr<Workers> _workers;  // its threads use all that stands before it
};

}  // namespace kite::tool
