#pragma once

#include <Kite/BackgroundChecker.h>
#include <Kite/Platform/Larder.h>
#include <Kite/Platform/Tempra.h>
#include <Kite/SessionListener.h>

#include "Sessions/Session.h"

#include <memory>
#include <optional>
#include <string_view>

namespace kite {

class EventManager;

struct SessionManagerDependencies {
  BackgroundChecker backgroundChecker;
  std::shared_ptr<EventManager> eventManager;
  bool isProduction;
  std::shared_ptr<Larder::KVStorage> kvStorage;
  std::shared_ptr<Tempra::Scheduler> scheduler;
  Tempra::TimeProvider timeProvider;
  std::function<UUID()> uuidProvider;
  SessionListener sessionListener;
};

/// Opens and closes sessions, keeps the current one across a process death, and reports both ends
/// of each.
class SessionManager {
 public:
  virtual ~SessionManager() = default;

  /// The current session. When none is open every read makes a new one, which is not stored; in the
  /// foreground with automatic sessions each such read also reports a session start.
  virtual std::shared_ptr<const Session> currentSession() = 0;
  /// The last session that was stored, or the current one when there never was any.
  virtual std::shared_ptr<const Session> lastForegroundSession() = 0;

  virtual void start(SessionManagerDependencies dependencies) = 0;

  /// Without data the key is removed.
  virtual void addSessionData(std::optional<JSONValue> data, std::string_view key) = 0;
  virtual void removeSessionData(std::string_view key) = 0;
  /// Merges; new values win.
  virtual void updateSessionData(const JSONValue::Object& data) = 0;
};

}  // namespace kite
