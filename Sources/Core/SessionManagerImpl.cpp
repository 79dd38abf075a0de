#include "Core/SessionManagerImpl.h"

#include "Base/Weakly.h"
#include "Core/EventManager.h"
#include "Core/TypedStorage.h"

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
  if (auto stored = storedSession()) return stored;
  // Not stored here: until a start or an assignment stores one, every read makes another session.
  auto session = std::make_shared<const Session>(createSession());
  if (opensSessions()) sendSessionStart(*session);
  return session;
}

std::shared_ptr<const Session> SessionManagerImpl::lastForegroundSession() {
  auto stored = load(*_dependencies->kvStorage, lastForegroundSessionKey);
  return stored ? stored : currentSession();
}

void SessionManagerImpl::start(SessionManagerDependencies dependencies) {
  _dependencies.set(std::move(dependencies));
  if (auto payload = lastSessionEndData()) sendSessionEnd(*std::move(payload));
  if (opensSessions()) openSession();
  startHeartbeat();
  addObservers();
}

void SessionManagerImpl::addSessionData(std::optional<JSONValue> data, std::string_view key) {
  auto session = *currentSession();
  if (data) {
    session.sessionData.insertOrAssign(std::string(key), *std::move(data));
  } else {
    session.sessionData.erase(key);
  }
  setCurrentSession(session);
}

void SessionManagerImpl::removeSessionData(std::string_view key) {
  addSessionData(std::nullopt, key);
}

void SessionManagerImpl::updateSessionData(const JSONValue::Object& data) {
  auto session = *currentSession();
  session.sessionData = session.sessionData.merged(data);
  setCurrentSession(session);
}

// The heartbeat of before is forgotten, not cancelled, when an end signal has not already done so.
void SessionManagerImpl::trackStartSession() {
  if (storedSession()) trackEndSession();
  openSession();
  startHeartbeat();
}

void SessionManagerImpl::trackEndSession() {
  if (const auto cancel = _cancellable.copy()) cancel();
  if (!storedSession()) return;
  const auto session = currentSession();
  const auto duration = _dependencies->timeProvider.now() - session->startDate;
  sendSessionEnd(endData(*session, false, duration));
}

Session SessionManagerImpl::createSession() const {
  const auto dependencies = _dependencies.get();
  return {.id = dependencies->uuidProvider(),
          .startDate = dependencies->timeProvider.now(),
          .sessionData = {},
          .isCrashed = false,
          .endDate = std::nullopt,
          .duration = 0};
}

// The second record outlives the session; it is written in the background too.
void SessionManagerImpl::setCurrentSession(const Session& session) {
  const auto dependencies = _dependencies.get();
  save(*dependencies->kvStorage, lastSessionKey, session);
  save(*dependencies->kvStorage, lastForegroundSessionKey, session);
}

std::shared_ptr<const Session> SessionManagerImpl::storedSession() {
  return _storedSession.load(*_dependencies->kvStorage, lastSessionKey);
}

bool SessionManagerImpl::opensSessions() const {
  const auto dependencies = _dependencies.get();
  return !dependencies->sessionListener.disableAutomaticSession &&
         !dependencies->backgroundChecker.isInBackground();
}

void SessionManagerImpl::openSession() {
  setCurrentSession(createSession());
  sendSessionStart(*currentSession());
}

std::optional<SessionEndPayload> SessionManagerImpl::lastSessionEndData() {
  const auto session = storedSession();
  if (!session) return std::nullopt;
  if (session->endDate) return endData(*session, false, *session->endDate - session->startDate);
  const auto counter = _dependencies->kvStorage->readNumber(counterKey);
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

void SessionManagerImpl::sendSessionStart(const Session& session) {
  const auto dependencies = _dependencies.get();
  dependencies->kvStorage->writeNumber(counterKey, 0.0);
  dependencies->eventManager->trackSession(SessionStartPayload{
      .id = session.id, .sessionStartDate = session.startDate.secondsSince1970});
}

void SessionManagerImpl::sendSessionEnd(SessionEndPayload payload) {
  const auto dependencies = _dependencies.get();
  dependencies->eventManager->trackSession(std::move(payload));
  dependencies->kvStorage->remove(lastSessionKey.name);
  dependencies->kvStorage->remove(counterKey);
}

void SessionManagerImpl::startHeartbeat() {
  _cancellable.set(_dependencies->scheduler->schedule(
      heartbeatInterval, heartbeatInterval,
      weakly(weak_from_this(), [](SessionManagerImpl& self) { self.timerTicked(); })));
}

void SessionManagerImpl::timerTicked() {
  const auto dependencies = _dependencies.get();
  const auto session = currentSession();
  const double age = dependencies->timeProvider.now() - session->startDate;
  dependencies->kvStorage->writeNumber(counterKey, age);
}

void SessionManagerImpl::addObservers() {
  const auto dependencies = _dependencies.get();
  const auto& listener = dependencies->sessionListener;
  _startListenerToken.set(listener.onSessionStart(
      weakly(weak_from_this(), [](SessionManagerImpl& self) { self.trackStartSession(); })));
  _endListenerToken.set(listener.onSessionEnd(
      weakly(weak_from_this(), [](SessionManagerImpl& self) { self.trackEndSession(); })));
}

}  // namespace kite
