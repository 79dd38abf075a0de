#include "Queue/EventStorageImpl.h"

#include "Base/CatchingBadAlloc.h"
#include "Base/Weakly.h"
#include "Queue/StoredEventList.h"
#include "Sessions/SessionEndHandler.h"

#include <utility>

namespace kite {

using Larder::Durability;
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
  const bool isAnotherStart = static_cast<bool>(_dependencies.unwrapped());
  _dependencies.set(std::move(dependencies));
  if (isAnotherStart) _isBlockDue = true;  // the last one may go with the queue of before
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
  _sessionEndToken.set(sessionListener.onSessionEnd(SessionEndHandler{
      SessionEndStep::writeQueue,
      weakly(weak_from_this(), [](EventStorageImpl& self) { self.onSessionEnd(); })}));
}

void EventStorageImpl::insert(TrackedEvent event) {
  submit(std::move(event).asChange());
  _spent.reclaim();
}

void EventStorageImpl::removeEvents(std::set<std::string> ids) {
  submit(std::make_unique<PendingChange>(std::move(ids)));
}

// One block makes all changes that were submitted by then, so that most find it sent for. When
// there is no memory for it the next change sends it, or the next flush makes them.
void EventStorageImpl::submit(std::unique_ptr<PendingChange> change) {
  const auto dependencies = _dependencies.get();
  const bool isFirst = _submitted.add(std::move(change));
  if (!isFirst && !_isBlockDue) return;
  _isBlockDue = !catchingBadAlloc([&] {
    dependencies->eventStorageQueue->run(
        weakly(weak_from_this(), [](EventStorageImpl& self) { self.makeSubmittedChanges(); }));
  });
}

void EventStorageImpl::onSessionStart() {
  if (!cancellable()) startTimer();
}

void EventStorageImpl::onSessionEnd() { enqueueFlush(); }

void EventStorageImpl::timerFired() {
  if (_isDirty || _isWriteDue || _isBlockDue) enqueueFlush();
}

void EventStorageImpl::enqueueFlush() {
  _dependencies->eventStorageQueue->run(
      weakly(weak_from_this(), [](EventStorageImpl& self) { self.flush(); }));
}

// What a turn that found no memory has left comes first.
void EventStorageImpl::makeSubmittedChanges() {
  makeChanges();
  _isBlockDue = false;
  _changes = _submitted.takeAll().reversed();
  makeChanges();
}

// The queue runs a block again that found no memory: what is made by then is not made twice.
void EventStorageImpl::makeChanges() {
  const ReadSection section;  // the changes read their dependencies one by one
  while (!_changes.empty()) {
    if (!_isFirstMade) updateMemoryPendingEvents(_changes.first());
    _isFirstMade = true;
    writeThrough();
    _isFirstMade = false;
    _spent.add(_changes.takeFirst());
  }
}

void EventStorageImpl::updateMemoryPendingEvents(const PendingChange& change) {
  if (const auto* tracked = std::get_if<TrackedAction>(&change.content)) {
    append(_encoder.encode(tracked->action, tracked->app.view()));
  } else if (const auto* record = std::get_if<StoredEvent>(&change.content)) {
    append(_encoder.encode(*record));
  } else {
    remove(std::get<PendingChange::Removal>(change.content));
  }
  _isDirty = true;
}

void EventStorageImpl::append(EventHandle event) {
  _pendingEvents.with([&](EventList& events) { events.append(std::move(event)); });
}

void EventStorageImpl::remove(const PendingChange::Removal& ids) {
  auto events = pendingEvents();
  events.remove(ids);
  _pendingEvents.set(std::move(events));
}

void EventStorageImpl::writeThrough() {
  if (_dependencies->backgroundChecker.isInBackground())
    alignMemoryAndDisk(Durability::survivesKill);
}

void EventStorageImpl::flush() {
  makeSubmittedChanges();
  alignMemoryAndDisk(Durability::survivesPowerCut);
}

void EventStorageImpl::alignMemoryAndDisk(Durability durability) {
  storePendingEvents(pendingEvents(), durability);
  _isDirty = false;
}

void EventStorageImpl::storePendingEvents(const EventList& events, Durability durability) {
  // The stored value is one array: an event without a text leaves it as it was written last.
  if (!events.isEncodable()) return;
  const auto save = [&](const Larder::ListEdit& edit) {
    return _dependencies->kvStorage->edit(pendingEventsKey, edit, durability);
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
