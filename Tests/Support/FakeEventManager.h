#pragma once

#include "Queue/EventManager.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kite::test {

/// Remembers the payloads that it was given, in order. Any thread.
class FakeEventManager final : public EventManager {
 public:
  struct CustomPayload {
    std::string table;
    CustomEvent::Payload payload;

    friend bool operator==(const CustomPayload&, const CustomPayload&) = default;
  };
  struct SegmentsReceived {
    friend bool operator==(SegmentsReceived, SegmentsReceived) = default;
  };
  using Tracked =
      std::variant<InstallPayload, SessionStartPayload, SessionEndPayload, UserInfoUpdated::Payload,
                   UserAction::Payload, CustomPayload, DebugEvent::Payload, SegmentsReceived>;

  /// Runs before each payload is remembered.
  std::function<void()> onTrack = [] {};

  bool isEnabled() const override { return _isEnabled; }
  void setEnabled(bool value) override { _isEnabled = value; }
  void start(EventManagerDependencies) override { _isEnabled = true; }
  Shared<User> kiteUser() override { return User{}; }

  void trackInstallEvent(InstallPayload payload) override { remember(std::move(payload)); }
  void trackSession(SessionSubtype session) override {
    std::visit([this](auto& payload) { remember(std::move(payload)); }, session);
  }
  void trackUserInfoUpdated(UserInfoUpdated::Payload payload) override {
    remember(std::move(payload));
  }
  void trackUserAction(UserAction::Payload payload) override { remember(std::move(payload)); }
  void trackCustomEvent(std::string table, CustomEvent::Payload payload) override {
    remember(CustomPayload{std::move(table), std::move(payload)});
  }
  void trackDebugEvent(DebugEvent::Payload payload) override { remember(std::move(payload)); }
  void trackExperimentSegmentsReceived() override { remember(SegmentsReceived{}); }

  std::vector<Tracked> tracked() const {
    const std::scoped_lock guard(_mutex);
    return _tracked;
  }
  /// The payloads of one kind.
  template <class Payload>
  std::vector<Payload> all() const {
    std::vector<Payload> result;
    for (const auto& each : tracked())
      if (const auto* payload = std::get_if<Payload>(&each)) result.push_back(*payload);
    return result;
  }
  void forget() {
    const std::scoped_lock guard(_mutex);
    _tracked.clear();
  }

 private:
  void remember(Tracked payload) {
    onTrack();
    const std::scoped_lock guard(_mutex);
    _tracked.push_back(std::move(payload));
  }

  mutable std::mutex _mutex;
  std::vector<Tracked> _tracked;
  std::atomic<bool> _isEnabled = false;
};

}  // namespace kite::test
