#pragma once

#include "Sessions/Session.h"
#include "Support/FakeEventManager.h"
#include "Support/FakeSystem.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kite::test {

inline UUID nthSessionId(std::uint32_t number) {
  auto id = FakeSystem::uuid(number);
  id.bytes[0] = 0xAA;
  return id;
}

/// What a session manager should have reported and stored, in the simplest words.
struct SessionModel {
  bool isAutomatic = true;
  bool isInBackground = false;
  double now = 1000;
  std::optional<Session> open;
  std::optional<Session> lastForeground;
  std::optional<double> counter;
  std::vector<FakeEventManager::Tracked> events;
  std::uint32_t sessions = 0;
  std::uint32_t ends = 0;
  bool isBeating = false;
  int forgottenHeartbeats = 0;

  bool opensSessions() const { return isAutomatic && !isInBackground; }
  Session newSession() {
    return {.id = nthSessionId(++sessions),
            .startDate = Date{now},
            .sessionData = {},
            .endDate = std::nullopt};
  }
  void reportStart(const Session& session) {
    counter = 0;
    events.emplace_back(SessionStartPayload{
        .id = session.id, .sessionStartDate = session.startDate.secondsSince1970});
  }
  void reportEnd(bool crashed, double duration) {
    events.emplace_back(SessionEndPayload{.sessionStartId = open->id,
                                          .crashed = crashed,
                                          .duration = duration,
                                          .sessionData = open->sessionData,
                                          .id = FakeSystem::uuid(++ends),
                                          .sessionEndTimestamp = 5000});
    open.reset();
    counter.reset();
  }
  void store(const Session& session) { open = lastForeground = session; }
  void openSession() {
    store(newSession());
    reportStart(*open);
  }
  void beat() {
    forgottenHeartbeats += isBeating ? 1 : 0;
    isBeating = true;
  }

  void start() {
    if (open) reportEnd(true, counter.value_or(-1));
    if (opensSessions()) openSession();
    beat();
  }
  void die() {
    isBeating = false;
    forgottenHeartbeats = 0;
  }
  void endSignal() {
    isBeating = false;
    if (open) reportEnd(false, Date{now} - open->startDate);
  }
  void startSignal() {
    if (open) endSignal();
    openSession();
    beat();
  }
  Session read() {
    if (open) return *open;
    const auto session = newSession();
    if (opensSessions()) reportStart(session);
    return session;
  }
  Session readForeground() { return lastForeground ? *lastForeground : read(); }
  void setData(const std::string& key, std::optional<JSONValue> value) {
    auto session = read();
    session.sessionData.erase(key);
    if (value) session.sessionData.insertOrAssign(key, *value);
    store(session);
  }
  void passSecond() {
    ++now;
    for (int beats = forgottenHeartbeats + (isBeating ? 1 : 0); beats > 0; --beats)
      counter = Date{now} - read().startDate;
  }
};

}  // namespace kite::test
