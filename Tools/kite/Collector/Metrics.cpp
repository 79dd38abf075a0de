#include "Collector/Metrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace kite::tool {
namespace {

constexpr std::array endingNames{"accepted", "refused", "unavailable", "busy",
                                 "failed",   "fault",   "health"};

void writeHead(std::string& out, std::string_view name, std::string_view type,
               std::string_view help) {
  fmt::format_to(std::back_inserter(out), "# HELP {0} {1}\n# TYPE {0} {2}\n", name, help, type);
}

void writeSample(std::string& out, std::string_view name, std::string_view labels,
                 std::uint64_t value) {
  fmt::format_to(std::back_inserter(out), "{}{} {}\n", name, labels, value);
}

void writeCounter(std::string& out, std::string_view name, std::string_view help,
                  std::uint64_t value) {
  writeHead(out, name, "counter", help);
  writeSample(out, name, "", value);
}

void writeGauge(std::string& out, std::string_view name, std::string_view help,
                std::uint64_t value) {
  writeHead(out, name, "gauge", help);
  writeSample(out, name, "", value);
}

void writeLoad(std::string& out, const WorkLoad& load) {
  writeGauge(out, "kite_collector_store_connections", "How many uploads are stored at a time.",
             load.intakes);
  writeGauge(out, "kite_collector_busy_store_connections", "Those that have a request now.",
             load.busy);
  writeGauge(out, "kite_collector_waiting_requests", "Requests that wait for one of them.",
             load.waiting);
  writeGauge(out, "kite_collector_unfinished_bytes",
             "Bytes of the bodies that wait or are being stored.", load.bytes);
}

void writeHistogram(std::string& out, std::string_view name, std::string_view help,
                    const Histogram& histogram) {
  writeHead(out, name, "histogram", help);
  histogram.write(out, name);
}

}  // namespace

void Histogram::add(double seconds) {
  const auto bound = std::ranges::lower_bound(bounds, seconds);
  ++_counts[static_cast<std::size_t>(bound - bounds.begin())];
  _sum += seconds;
}

void Histogram::write(std::string& out, std::string_view name) const {
  const auto add = std::back_inserter(out);
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < bounds.size(); ++i) {
    count += _counts[i];
    fmt::format_to(add, "{}_bucket{{le=\"{}\"}} {}\n", name, bounds[i], count);
  }
  count += _counts.back();
  fmt::format_to(add, "{0}_bucket{{le=\"+Inf\"}} {1}\n{0}_sum {2}\n{0}_count {1}\n", name, count,
                 _sum);
}

Metrics::Ending Metrics::endingOf(const RequestReport& report) {
  if (report.fault) return fault;
  if (report.status == 503) return report.hasStoreFailed ? unavailable : busy;
  if (report.status == 500) return failed;
  if (report.errorCode) return refused;
  return isHealthCheck(report) ? health : accepted;
}

void Metrics::note(const RequestReport& report) {
  const std::scoped_lock lock(_mutex);
  ++_statistics.requests;
  if (report.newEvents + report.duplicates > 0) ++_statistics.accepted;
  if (report.fault) ++_statistics.faults;
  if (report.errorCode && !report.fault) ++_statistics.refused;
  _statistics.newEvents += report.newEvents;
  _statistics.duplicates += report.duplicates;

  const Ending ending = endingOf(report);
  ++_requests[ending];
  if (ending == refused) ++_refusals[*report.errorCode];
  if (ending != health) _requestTimes.add(report.seconds);
  if (report.storeSeconds) _storeTimes.add(*report.storeSeconds);
  if (report.hasStoreFailed) ++_failedUploads;
  _receivedBytes += report.bytes;
  _unpackedBytes += static_cast<std::uint64_t>(report.unpackedBytes.value_or(0));
}

void Metrics::noteUnrecorded() {
  const std::scoped_lock lock(_mutex);
  ++_failedRecords;
}

CollectorStatistics Metrics::statistics() const {
  const std::scoped_lock lock(_mutex);
  return _statistics;
}

std::string Metrics::text(const WorkLoad& load) const {
  const std::scoped_lock lock(_mutex);
  std::string out;
  writeHead(out, "kite_collector_requests_total", "counter", "Requests answered, by outcome.");
  for (std::size_t i = 0; i < endings; ++i) {
    writeSample(out, "kite_collector_requests_total",
                fmt::format("{{outcome=\"{}\"}}", endingNames[i]), _requests[i]);
  }
  writeHead(out, "kite_collector_refusals_total", "counter",
            "Requests refused, by the error code of the answer.");
  for (const auto& [code, count] : _refusals) {
    writeSample(out, "kite_collector_refusals_total", fmt::format("{{error_code=\"{}\"}}", code),
                count);
  }
  writeCounter(out, "kite_collector_stored_events_total", "Events stored.", _statistics.newEvents);
  writeCounter(out, "kite_collector_duplicate_events_total",
               "Events that came again and were only counted.", _statistics.duplicates);
  writeCounter(out, "kite_collector_received_bytes_total", "Bytes of bodies as they came.",
               _receivedBytes);
  writeCounter(out, "kite_collector_unpacked_bytes_total", "Bytes of accepted bodies, unpacked.",
               _unpackedBytes);
  writeHead(out, "kite_collector_store_errors_total", "counter",
            "Requests for which the store failed: an upload was not stored, or only its record.");
  writeSample(out, "kite_collector_store_errors_total", "{operation=\"upload\"}", _failedUploads);
  writeSample(out, "kite_collector_store_errors_total", "{operation=\"record\"}", _failedRecords);
  writeHistogram(out, "kite_collector_request_duration_seconds",
                 "From a request's last byte to its answer, without checks of health.",
                 _requestTimes);
  writeHistogram(out, "kite_collector_store_duration_seconds",
                 "What an upload spent in the store, also when that failed.", _storeTimes);
  writeLoad(out, load);
  return out;
}

}  // namespace kite::tool
