#pragma once

#include "Collector/Store/EventStore.h"
#include "Report/Report.h"

#include <stdexcept>

namespace kite::test {

inline constexpr tool::DayRange reportedDays{
    .first = std::chrono::year(2026) / 11 / 21,
    .last = std::chrono::year(2026) / 11 / 23,
};

/// Seconds since 1970 of a time of that day in November 2026.
inline double november(unsigned day, double secondsOfDay = 0) {
  const std::chrono::sys_days midnight = std::chrono::year(2026) / 11 / std::chrono::day(day);
  return static_cast<double>(std::chrono::seconds(midnight.time_since_epoch()).count()) +
         secondsOfDay;
}

inline constexpr double reportedNoon = 12 * 3600;

/// Any kind of store, to be filled with events.
class ReportedStore {
 public:
  explicit ReportedStore(const std::string& place) {
    auto opened = tool::openStore(place);
    if (!opened) throw std::runtime_error(opened.error());
    _store = *std::move(opened);
  }

  void add(const std::string& client, double receivedAt, std::vector<tool::ReceivedEvent> events) {
    for (auto& event : events) event.id = "event " + std::to_string(++_events);
    _store->store({.sender = {.requestID = "request " + std::to_string(++_requests),
                              .app = "trail-maps",
                              .clientID = client,
                              .isTester = false},
                   .batch = {.requestTimestamp = receivedAt, .events = events, .textBytes = 1}},
                  receivedAt);
  }

 private:
  std::unique_ptr<tool::EventStore> _store;
  int _events = 0;
  int _requests = 0;
};

inline tool::ReceivedEvent reported(double time, const std::string& type, const std::string& data) {
  return {.id = "",
          .type = type,
          .timestamp = time,
          .userInfo = "{}",
          .userIDs = "{}",
          .data = data,
          .facts = tool::factsOf("", type, data)};
}

/// `name` is JSON text without its quotes.
inline tool::ReceivedEvent reportedAction(double time, const std::string& name) {
  return reported(time, "UserAction", R"({"action_kind":")" + name + R"("})");
}

inline tool::ReceivedEvent reportedEnd(double time, bool hasCrashed) {
  return reported(time, "Session",
                  std::string(R"({"subtype":"session_end","session_start_id":"s","duration":5,)") +
                      R"("crashed":)" + (hasCrashed ? "true}" : "false}"));
}

/// Two days with events and one without between them, and events just outside of them.
inline void addReportedDays(ReportedStore& store) {
  const double noon = november(23, reportedNoon);
  constexpr double lastMoment = 86400 - 0.5;
  store.add("client-1", noon,
            {reportedAction(november(20, lastMoment), "open"), reportedAction(november(21), "open"),
             reported(november(21, 600), "Install", R"({"new_app_version":"1"})"),
             reportedAction(november(23, 60), "buy"), reportedEnd(november(23, 120), true),
             reportedAction(november(24, reportedNoon), "open")});
  store.add("client-2", noon,
            {reportedAction(november(21, lastMoment), "open"),
             reported(november(23), "Install", R"({"new_app_version":"2","old_app_version":"1"})"),
             reported(november(23, 60), "Session", R"({"subtype":"session_start"})"),
             reportedEnd(november(23, 70), false)});
  store.add("client-3", november(20, reportedNoon),
            {reportedAction(november(20, 60), "old"), reportedAction(november(21, 60), "early")});
}

}  // namespace kite::test
