#pragma once

#include "Collector/RequestReport.h"
#include "Collector/WorkLoad.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace kite::tool {

struct CollectorStatistics {
  std::size_t requests = 0;    ///< all, of whatever kind
  std::size_t accepted = 0;    ///< uploads that were stored and answered with 200
  std::size_t refused = 0;     ///< requests that were answered with an error, other than by a fault
  std::size_t faults = 0;      ///< uploads that a fault struck
  std::size_t newEvents = 0;   ///< events stored
  std::size_t duplicates = 0;  ///< events received again
};

/// How long something took, each time, sorted by fixed bounds.
class Histogram {
 public:
  static constexpr std::array bounds{0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                     0.1,    0.25,  0.5,    1.0,   2.0,  5.0};  // seconds

  void add(double seconds);
  /// Appends its samples.
  void write(std::string& out, std::string_view name) const;

 private:
  std::array<std::uint64_t, bounds.size() + 1> _counts{};  // the last one is beyond all bounds
  double _sum = 0;
};

/// Counts what became of requests, and nothing of what was in them. All operations may be called
/// from any thread.
class Metrics {
 public:
  void note(const RequestReport& report);
  /// That nothing is kept of a request, because the store failed.
  void noteUnrecorded();
  CollectorStatistics statistics() const;
  /// The text format of Prometheus, version 0.0.4.
  std::string text(const WorkLoad& load) const;

 private:
  enum Ending { accepted, refused, unavailable, busy, failed, fault, health, endings };
  static Ending endingOf(const RequestReport& report);

  mutable std::mutex _mutex;  // guards all that follows
  CollectorStatistics _statistics;
  std::array<std::uint64_t, endings> _requests{};
  std::map<int, std::uint64_t> _refusals{{0, 0},   {100, 0}, {101, 0}, {102, 0},
                                         {601, 0}, {603, 0}, {604, 0}};  // by error code
  std::uint64_t _receivedBytes = 0;
  std::uint64_t _unpackedBytes = 0;
  std::uint64_t _failedUploads = 0;
  std::uint64_t _failedRecords = 0;
  Histogram _requestTimes;
  Histogram _storeTimes;
};

}  // namespace kite::tool
