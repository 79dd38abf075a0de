#pragma once

#include <Kite/Platform/System.h>

#include "Base/Guarded.h"
#include "Base/Started.h"
#include "Events/EventKinds.h"
#include "Profile/TypedStorage.h"
#include "Sessions/SessionManager.h"

#include <concepts>
#include <memory>
#include <optional>
#include <string_view>

namespace kite {

/// Keeps the current session in the key-value store, together with its age at the last heartbeat,
/// so that a session which the process did not survive is reported at the next start.
///
/// Runs on the threads that call it: the facade's callers, whoever signals sessions, and the
/// scheduler. The store orders what they do; nothing else does. Durations follow the injected
/// clock; the time of an end is always the wall clock's.
class SessionManagerImpl : public SessionManager,
                           public std::enable_shared_from_this<SessionManagerImpl> {
 public:
  static constexpr Larder::Key<Session> lastSessionKey{"Kite-Last-Session"};
  static constexpr Larder::Key<Session> lastForegroundSessionKey{"Kite-Last-Foreground-Session"};
  static constexpr std::string_view counterKey = "Kite-Last-Session-Counter";

  explicit SessionManagerImpl(System system = System::live());
  ~SessionManagerImpl() override;
  SessionManagerImpl(const SessionManagerImpl&) = delete;
  SessionManagerImpl& operator=(const SessionManagerImpl&) = delete;

  std::shared_ptr<const Session> currentSession() override;
  std::shared_ptr<const Session> lastForegroundSession() override;
  void start(SessionManagerDependencies dependencies) override;
  void addSessionData(std::optional<JSONValue> data, std::string_view key) override;
  void removeSessionData(std::string_view key) override;
  void updateSessionData(const JSONValue::Object& data) override;

  /// What the listener's signals call.
  virtual void trackStartSession();
  virtual void trackEndSession();

 private:
  /// One start's store and what was read from it. An operation keeps to the one that it began with.
  struct Running : SessionManagerDependencies {
    mutable RememberedRecord<Session> session{};
  };

  static Session createSession(const Running& running);
  static void setCurrentSession(const Running& running, const Session& session);
  static std::shared_ptr<const Session> storedSession(const Running& running);
  static std::shared_ptr<const Session> currentSession(const Running& running);
  static bool opensSessions(const Running& running);
  static void openSession(const Running& running);
  std::optional<SessionEndPayload> lastSessionEndData(const Running& running) const;
  SessionEndPayload endData(const Session& session, bool crashed, double duration) const;
  static void sendSessionStart(const Running& running, const Session& session);
  static void sendSessionEnd(const Running& running, SessionEndPayload payload);
  void startHeartbeat(const Running& running);
  void timerTicked();
  void addObservers(const Running& running);

  const System _system;
  Guarded<Tempra::Cancel> _cancellable;
  Started<Running> _dependencies{"Call start before using the SessionManager",
                                 {"Kite/SessionManagerImpl", "", 0}};
  Guarded<std::optional<CancelToken>> _startListenerToken;
  Guarded<std::optional<CancelToken>> _endListenerToken;
};

static_assert(std::default_initializable<SessionManagerImpl>);

}  // namespace kite
