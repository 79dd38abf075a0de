#include "Sessions/SessionManagerImpl.h"

#include "Base/Weakly.h"
#include "Profile/TypedStorage.h"
#include "Queue/EventManager.h"
#include "Sessions/SessionEndHandler.h"

#include <string>
#include <utility>

namespace kite {
namespace {

constexpr Tempra::Duration heartbeatInterval{1};
constexpr double unknownDuration = -1.0;

}  // namespace

SessionManagerImpl::SessionManagerImpl(System system) : _system(std::move(system)) {}

SessionManagerImpl::~SessionManagerImpl() {
  if (const auto cancel = _cancellable.take()) cancel();
  const auto dependencies = _dependencies.unwrapped();
  if (!dependencies) return;
  const auto& listener = dependencies->sessionListener;
  if (const auto token = _startListenerToken.take()) listener.detachSessionStart(*token);
  if (const auto token = _endListenerToken.take()) listener.detachSessionEnd(*token);
}

std::shared_ptr<const Session> SessionManagerImpl::currentSession() {
  return currentSession(*_dependencies.get());
}

std::shared_ptr<const Session> SessionManagerImpl::currentSession(const Running& running) {
  if (auto stored = storedSession(running)) return stored;
  // Not stored here: until a start or an assignment stores one, every read makes another session.
  auto session = std::make_shared<const Session>(createSession(running));
  if (opensSessions(running)) sendSessionStart(running, *session);
  return session;
}

std::shared_ptr<const Session> SessionManagerImpl::lastForegroundSession() {
  const auto running = _dependencies.get();
  auto stored = load(*running->kvStorage, lastForegroundSessionKey);
  return stored ? stored : currentSession(*running);
}

void SessionManagerImpl::start(SessionManagerDependencies dependencies) {
  _dependencies.set(std::move(dependencies));
  const auto running = _dependencies.get();
  if (auto payload = lastSessionEndData(*running)) sendSessionEnd(*running, *std::move(payload));
  if (opensSessions(*running)) openSession(*running);
  startHeartbeat(*running);
  addObservers(*running);
}

void SessionManagerImpl::addSessionData(std::optional<JSONValue> data, std::string_view key) {
  const auto running = _dependencies.get();
  auto session = *currentSession(*running);
  if (data) {
    session.sessionData.insertOrAssign(std::string(key), *std::move(data));
  } else {
    session.sessionData.erase(key);
  }
  setCurrentSession(*running, session);
}

void SessionManagerImpl::removeSessionData(std::string_view key) {
  addSessionData(std::nullopt, key);
}

void SessionManagerImpl::updateSessionData(const JSONValue::Object& data) {
  const auto running = _dependencies.get();
  auto session = *currentSession(*running);
  session.sessionData = session.sessionData.merged(data);
  setCurrentSession(*running, session);
}

// The heartbeat of before is forgotten, not cancelled, when an end signal has not already done so.
void SessionManagerImpl::trackStartSession() {
  const auto running = _dependencies.get();
  if (storedSession(*running)) trackEndSession();
  openSession(*running);
  startHeartbeat(*running);
}

void SessionManagerImpl::trackEndSession() {
  const auto running = _dependencies.get();
  if (const auto cancel = _cancellable.copy()) cancel();
  if (!storedSession(*running)) return;
  const auto session = currentSession(*running);
  const auto duration = running->timeProvider.now() - session->startDate;
  sendSessionEnd(*running, endData(*session, false, duration));
}

Session SessionManagerImpl::createSession(const Running& running) {
  return {.id = running.uuidProvider(),
          .startDate = running.timeProvider.now(),
          .sessionData = {},
          .isCrashed = false,
          .endDate = std::nullopt,
          .duration = 0};
}

// The second record outlives the session; it is written in the background too.
void SessionManagerImpl::setCurrentSession(const Running& running, const Session& session) {
  save(*running.kvStorage, lastSessionKey, session);
  save(*running.kvStorage, lastForegroundSessionKey, session);
}

std::shared_ptr<const Session> SessionManagerImpl::storedSession(const Running& running) {
  return running.session.load(*running.kvStorage, lastSessionKey);
}

bool SessionManagerImpl::opensSessions(const Running& running) {
  return !running.sessionListener.disableAutomaticSession &&
         !running.backgroundChecker.isInBackground();
}

void SessionManagerImpl::openSession(const Running& running) {
  setCurrentSession(running, createSession(running));
  sendSessionStart(running, *currentSession(running));
}

std::optional<SessionEndPayload> SessionManagerImpl::lastSessionEndData(
    const Running& running) const {
  const auto session = storedSession(running);
  if (!session) return std::nullopt;
  if (session->endDate) return endData(*session, false, *session->endDate - session->startDate);
  const auto counter = running.kvStorage->readNumber(counterKey);
  return endData(*session, true, counter.value_or(unknownDuration));
}

SessionEndPayload SessionManagerImpl::endData(const Session& session, bool crashed,
                                              double duration) const {
  return {.sessionStartId = session.id,
          .crashed = crashed,
          .duration = duration,
          .sessionData = session.sessionData,
          .id = _system.randomUUID(),
          .sessionEndTimestamp = _system.now().secondsSince1970};
}

void SessionManagerImpl::sendSessionStart(const Running& running, const Session& session) {
  running.kvStorage->writeNumber(counterKey, 0.0);
  running.eventManager->trackSession(SessionStartPayload{
      .id = session.id, .sessionStartDate = session.startDate.secondsSince1970});
}

void SessionManagerImpl::sendSessionEnd(const Running& running, SessionEndPayload payload) {
  running.eventManager->trackSession(std::move(payload));
  running.kvStorage->remove(lastSessionKey.name);
  running.kvStorage->remove(counterKey);
}

void SessionManagerImpl::startHeartbeat(const Running& running) {
  _cancellable.set(running.scheduler->schedule(
      heartbeatInterval, heartbeatInterval,
      weakly(weak_from_this(), [](SessionManagerImpl& self) { self.timerTicked(); })));
}

void SessionManagerImpl::timerTicked() {
  const auto running = _dependencies.get();
  const auto session = currentSession(*running);
  const double age = running->timeProvider.now() - session->startDate;
  running->kvStorage->writeNumber(counterKey, age);
}

void SessionManagerImpl::addObservers(const Running& running) {
  const auto& listener = running.sessionListener;
  _startListenerToken.set(listener.onSessionStart(
      weakly(weak_from_this(), [](SessionManagerImpl& self) { self.trackStartSession(); })));
  _endListenerToken.set(listener.onSessionEnd(SessionEndHandler{
      SessionEndStep::recordEnd,
      weakly(weak_from_this(), [](SessionManagerImpl& self) { self.trackEndSession(); })}));
}

}  // namespace kite
