#include "Core/EventStorageImpl.h"

#include "Base/Weakly.h"
#include "Core/Event/StoredEventList.h"

#include <utility>

namespace kite {

using Larder::EditOutcome;

EventStorageImpl::~EventStorageImpl() {
  if (const auto cancel = _cancellable.take()) cancel();
  const auto dependencies = _dependencies.unwrapped();
  if (!dependencies) return;
  const SessionListener& sessions = dependencies->sessionListener;
  if (const auto token = _sessionStartToken.take()) sessions.detachSessionStart(*token);
  if (const auto token = _sessionEndToken.take()) sessions.detachSessionEnd(*token);
}

void EventStorageImpl::start(EventStorageDependencies dependencies) {
  const SessionListener sessionListener = dependencies.sessionListener;
  _dependencies.set(std::move(dependencies));
  load();
  startTimer();
  addObservers(sessionListener);
}

void EventStorageImpl::load() {
  auto stored = StoredEventList::load(*_dependencies->kvStorage, pendingEventsKey);
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
  enqueue([event = std::move(event)](EventStorageImpl& self, EventList& events) mutable {
    events.append(self._encoder.encode(event.record()));
    self._spentEvents.add(std::move(event));
  });
  _spentEvents.destroy();
}

void EventStorageImpl::removeEvents(std::set<std::string> ids) {
  enqueue([ids = std::move(ids)](EventStorageImpl&, EventList& events) { events.remove(ids); });
}

// The queue runs a block again that found no memory: what is made by then is not made twice.
template <class Change>
void EventStorageImpl::enqueue(Change change) {
  auto block = [change = std::move(change), isMade = false](EventStorageImpl& self) mutable {
    if (!isMade) self.updateMemoryPendingEvents(change);
    isMade = true;
    self.writeThrough();
  };
  _dependencies->eventStorageQueue->run(weakly(weak_from_this(), std::move(block)));
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

template <class Change>
void EventStorageImpl::updateMemoryPendingEvents(Change& change) {
  auto events = pendingEvents();
  change(*this, events);
  _pendingEvents.set(std::move(events));
  _isDirty = true;
}

void EventStorageImpl::writeThrough() {
  if (_dependencies->backgroundChecker.isInBackground()) alignMemoryAndDisk();
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
  // Of an edit that memory ran out on nobody knows how far it came: then all is written anew.
  auto savedEvents = _savedEvents.take();
  auto outcome = savedEvents ? save(events.editFrom(*savedEvents)) : EditOutcome::listIsGone;
  if (outcome == EditOutcome::listIsGone) outcome = save(events.wholeEdit());
  const bool isSaved = outcome == EditOutcome::saved;
  _savedEvents.set(isSaved ? std::optional(events) : std::move(savedEvents));
  _isWriteDue = !isSaved;
}

}  // namespace kite
