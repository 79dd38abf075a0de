#pragma once

#include "Install/InstallManager.h"
#include "Queue/EventManager.h"
#include "Queue/EventStorage.h"
#include "Sessions/SessionManager.h"
#include "Upload/KiteAPIManager.h"
#include "Upload/SynchronizationManager.h"
#include "Upload/UploadLog.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {

/// The names of what was started, in order.
using StartLog = std::vector<std::string>;

/// A manager that does nothing but remember its starts and what the last one was given.
template <class Manager, class Dependencies>
class RecordingManager : public Manager {
 public:
  RecordingManager(std::string name, StartLog& log) : _name(std::move(name)), _log(log) {}

  void start(Dependencies dependencies) override {
    note(_name);
    onStart();
    given = std::move(dependencies);
  }

  std::optional<Dependencies> given;
  std::function<void()> onStart = [] {};

 protected:
  void note(std::string event) { _log.push_back(std::move(event)); }

 private:
  std::string _name;
  StartLog& _log;
};

class RecordingAPIManager final : public RecordingManager<KiteAPIManager, APIManagerDependencies> {
 public:
  using RecordingManager::RecordingManager;
  void send(EventBatch, Callback) override {}
};

class RecordingEventStorage final
    : public RecordingManager<EventStorage, EventStorageDependencies> {
 public:
  using RecordingManager::RecordingManager;
  EventList pendingEvents() const override { return {}; }
  void insert(std::unique_ptr<PendingChange>) override {}
  QueueStatus status() const override { return {}; }
  void removeEvents(std::set<std::string>, const RemovalAccount&) override {}
  void persist(std::function<void(bool)>) override {}
};

/// Logs updates of the user info as well: they are all that is to be seen of that step.
class RecordingEventManager final
    : public RecordingManager<EventManager, EventManagerDependencies> {
 public:
  using RecordingManager::RecordingManager;
  bool isEnabled() const override { return given.has_value(); }
  void setEnabled(bool) override {}
  Shared<User> kiteUser() override { return User{}; }
  void trackInstallEvent(InstallPayload) override {}
  void trackSession(SessionSubtype) override {}
  void trackUserInfoUpdated(UserInfoUpdated::Payload) override { note("user info"); }
  void trackUserAction(UserAction::Payload) override {}
  void trackCustomEvent(std::string, CustomEvent::Payload) override {}
  void trackDebugEvent(DebugEvent::Payload) override {}
  void trackExperimentSegmentsReceived() override {}
};

class RecordingInstallManager final
    : public RecordingManager<InstallManager, InstallManagerDependencies> {
 public:
  using RecordingManager::RecordingManager;
  StoredInformations ssInfo() override { return {}; }
  StoredInformations kvInfo() override { return {}; }
};

class RecordingSessionManager final
    : public RecordingManager<SessionManager, SessionManagerDependencies> {
 public:
  using RecordingManager::RecordingManager;
  std::shared_ptr<const Session> currentSession() override { return session; }
  std::shared_ptr<const Session> lastForegroundSession() override { return nullptr; }
  void addSessionData(std::optional<JSONValue>, std::string_view) override {}
  void removeSessionData(std::string_view) override {}
  void updateSessionData(const JSONValue::Object& data) override { updatedWith = data; }

  std::shared_ptr<const Session> session;
  std::optional<JSONValue::Object> updatedWith;
};

class RecordingSynchronizationManager final
    : public RecordingManager<SynchronizationManager, SynchronizationManagerDependencies> {
 public:
  using RecordingManager::RecordingManager;
  void uploadBatch(std::function<bool()>, std::function<void(UploadResult)>) override {}
  UploadLog& uploads() override { return _uploads; }

 private:
  UploadLog _uploads;
};

}  // namespace kite::test
