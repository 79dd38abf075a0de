#include "Core/EventStorageImpl.h"

#include "Base/Weakly.h"
#include "Core/Event/StoredEventList.h"

#include <utility>

namespace kite {

using Larder::EditOutcome;

EventStorageImpl::~EventStorageImpl() {
  if (const auto cancel = cancellable()) cancel();
  const auto dependencies = _dependencies.unwrapped();
  if (!dependencies) return;
  const SessionListener& sessions = dependencies->sessionListener;
  if (const auto token = _sessionStartToken.copy()) sessions.detachSessionStart(*token);
  if (const auto token = _sessionEndToken.copy()) sessions.detachSessionEnd(*token);
}

void EventStorageImpl::start(EventStorageDependencies dependencies) {
  const SessionListener sessionListener = dependencies.sessionListener;
  _dependencies.set(std::move(dependencies));
  load();
  startTimer();
  addObservers(sessionListener);
}

void EventStorageImpl::load() {
  const auto value = _dependencies->kvStorage->read(pendingEventsKey);
  auto stored = StoredEventList::load(value.get());
  _savedEvents.set(stored.isSaved ? std::optional(stored.events) : std::nullopt);
  _pendingEvents.set(std::move(stored.events));
}

void EventStorageImpl::startTimer() {
  const auto scheduler = _dependencies->scheduler;
  setCancellable(scheduler->schedule(
      syncInterval, syncInterval,
      weakly(weak_from_this(), [](EventStorageImpl& self) { self.timerFired(); })));
}

void EventStorageImpl::addObservers(const SessionListener& sessionListener) {
  _sessionStartToken.set(sessionListener.onSessionStart(
      weakly(weak_from_this(), [](EventStorageImpl& self) { self.onSessionStart(); })));
  _sessionEndToken.set(sessionListener.onSessionEnd(
      weakly(weak_from_this(), [](EventStorageImpl& self) { self.onSessionEnd(); })));
}

void EventStorageImpl::insert(TrackedEvent event) {
  auto append = [event = std::move(event)](EventStorageImpl& self) mutable {
    auto events = self.pendingEvents();
    events.append(self._encoder.encode(std::move(event).record()));
    self.updateMemoryPendingEvents(events);
  };
  _dependencies->eventStorageQueue->run(weakly(weak_from_this(), std::move(append)));
}

void EventStorageImpl::removeEvents(std::set<std::string> ids) {
  auto remove = [ids = std::move(ids)](EventStorageImpl& self) {
    auto events = self.pendingEvents();
    events.remove(ids);
    self.updateMemoryPendingEvents(events);
  };
  _dependencies->eventStorageQueue->run(weakly(weak_from_this(), std::move(remove)));
}

void EventStorageImpl::onSessionStart() {
  if (!cancellable()) startTimer();
}

void EventStorageImpl::onSessionEnd() {
  _dependencies->eventStorageQueue->run(
      weakly(weak_from_this(), [](EventStorageImpl& self) { self.alignMemoryAndDisk(); }));
}

void EventStorageImpl::timerFired() {
  if (!_isDirty && !_isWriteDue) return;
  _dependencies->eventStorageQueue->run(
      weakly(weak_from_this(), [](EventStorageImpl& self) { self.alignMemoryAndDisk(); }));
}

void EventStorageImpl::updateMemoryPendingEvents(const EventList& events) {
  _pendingEvents.set(events);
  _isDirty = true;
  if (!_dependencies->backgroundChecker.isInBackground()) return;
  storePendingEvents(events);
  _isDirty = false;
}

void EventStorageImpl::alignMemoryAndDisk() {
  storePendingEvents(pendingEvents());
  _isDirty = false;
}

void EventStorageImpl::storePendingEvents(const EventList& events) {
  // The stored value is one array: an event without a text leaves it as it was written last.
  if (!events.isEncodable()) return;
  const auto save = [&](const Larder::ListEdit& edit) {
    return _dependencies->kvStorage->edit(pendingEventsKey, edit);
  };
  const auto savedEvents = _savedEvents.copy();
  auto outcome = savedEvents ? save(events.editFrom(*savedEvents)) : EditOutcome::listIsGone;
  if (outcome == EditOutcome::listIsGone) outcome = save(events.wholeEdit());
  const bool isSaved = outcome == EditOutcome::saved;
  if (isSaved) _savedEvents.set(events);
  _isWriteDue = !isSaved;
}

}  // namespace kite
