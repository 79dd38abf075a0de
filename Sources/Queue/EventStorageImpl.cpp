#include "Queue/EventStorageImpl.h"

#include "Base/CatchingBadAlloc.h"
#include "Base/Weakly.h"
#include "Queue/StoredEventList.h"
#include "Sessions/SessionEndHandler.h"

#include <algorithm>
#include <utility>

namespace kite {

using Larder::Durability;
using Larder::EditOutcome;
using Larder::EditResult;

namespace {

bool isSaved(const EditResult& result) {
  return result.outcome == EditOutcome::saved || result.outcome == EditOutcome::savedUnsynced;
}

}  // namespace

EventStorageImpl::~EventStorageImpl() {
  if (const auto cancel = _cancellable.take()) cancel();
  const auto dependencies = _dependencies.unwrapped();
  if (!dependencies) return;
  const SessionListener& sessions = dependencies->sessionListener;
  if (const auto token = _sessionStartToken.take()) sessions.detachSessionStart(*token);
  if (const auto token = _sessionEndToken.take()) sessions.detachSessionEnd(*token);
}

/// `body(self, work)`, once the events of the last run are loaded.
template <class Body>
Tempra::Block EventStorageImpl::block(Body body) {
  return weakly(weak_from_this(), [body = std::move(body)](EventStorageImpl& self) {
    const std::scoped_lock guard(self._work.mutex);
    self.load(self._work);
    std::invoke(body, self, self._work);
  });
}

template <class Body>
void EventStorageImpl::runOnQueue(Body body) {
  _dependencies->eventStorageQueue->run(block(std::move(body)));
}

void EventStorageImpl::start(EventStorageDependencies dependencies) {
  const SessionListener sessionListener = dependencies.sessionListener;
  const bool isAnotherStart = static_cast<bool>(_dependencies.unwrapped());
  _dependencies.set(std::move(dependencies));
  if (isAnotherStart) _isBlockDue = true;  // the last one may go with the queue of before
  ++_starts;
  catchingBadAlloc([&] {
    if (isAnotherStart) return runOnQueue(&EventStorageImpl::makeSubmittedChanges);
    runOnQueue(&EventStorageImpl::load);
  });
  startTimer();
  addObservers(sessionListener);
}

EventList EventStorageImpl::pendingEvents() const {
  if (_loadedStart != _starts) {
    // Before the first load no block works on anything. One that runs may wait for the main thread,
    // which may be this one, so the lock of the blocks is for a later start only.
    std::unique_lock guard(_work.mutex, std::defer_lock);
    if (_loadedStart != 0) guard.lock();
    load(_work);
  }
  if (_submitted.isPatient()) _dependencies->eventStorageQueue->runWaiting();
  return _pendingEvents.copy();
}

QueueStatus EventStorageImpl::status() const {
  const auto dependencies = _dependencies.unwrapped();
  if (!dependencies) return {};
  const auto inserted = _inserted.total();
  return _pendingEvents.with([&](const EventList& events) {
    QueueStatus status{dependencies->ledger->counts(), events.size() - events.countFrom(_savedEnd)};
    const auto waiting = inserted - std::min(inserted, _appended.load());
    status.ledger.tracked += waiting;
    status.ledger.pending = events.size() + waiting;
    return status;
  });
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

void EventStorageImpl::insert(std::unique_ptr<PendingChange> event) {
  constexpr std::uint64_t callsBetweenLooks = 64;
  const auto count = _inserted.add();
  if (event->mayWait && count % callsBetweenLooks == 0) event->mayWait = !areManyWaiting();
  submit(std::move(event));
  _spent.reclaim();
}

void EventStorageImpl::removeEvents(std::set<std::string> ids, const RemovalAccount& account) {
  submit(std::make_unique<PendingChange>(PendingChange::Removal{std::move(ids), account}));
}

void EventStorageImpl::persist(std::function<void(bool)> done) {
  runOnQueue([done = std::move(done)](EventStorageImpl& self, Work& work) {
    work.isNoteDue = true;
    self.flush(work);
    done(self._savedEnd >= self._pendingEvents.copy().nextOrdinal());
  });
}

bool EventStorageImpl::areManyWaiting() const {
  return _inserted.total() >= _appended + mostWaiting;
}

// One block makes all changes that were submitted by then, so that most calls find one on its way;
// another one follows when that may wait and the change may not.
// When there is no memory for it the next change submits it, or the next flush makes the changes.
void EventStorageImpl::submit(std::unique_ptr<PendingChange> change) {
  using Before = MPSCStack<PendingChange>::Before;
  const auto dependencies = _dependencies.get();
  const bool mayWait = change->mayWait;
  const auto before = _submitted.add(std::move(change), !mayWait);
  const bool hasBlock = before == Before::urgent || (mayWait && before == Before::patient);
  if (hasBlock && !_isBlockDue) return;
  _isBlockDue = !catchingBadAlloc([&] {
    auto making = block(&EventStorageImpl::makeSubmittedChanges);
    auto& queue = *dependencies->eventStorageQueue;
    mayWait ? queue.runSoon(std::move(making)) : queue.run(std::move(making));
  });
}

void EventStorageImpl::onSessionStart() {
  if (!cancellable()) startTimer();
}

void EventStorageImpl::onSessionEnd() { runOnQueue(&EventStorageImpl::flush); }

void EventStorageImpl::timerFired() {
  if (_isDirty || _isWriteDue || _isBlockDue || _submitted.isPatient())
    runOnQueue(&EventStorageImpl::flush);
}

// Not in `start`, whose caller would wait for the disk. Whoever comes first loads.
void EventStorageImpl::load(Work& work) const {
  const std::scoped_lock guard(work.loading);
  const auto start = _starts.load();  // another one may come meanwhile, and loads anew
  if (_loadedStart == start) return;
  const auto dependencies = _dependencies.get();
  work.store = dependencies->kvStorage;
  work.ledger = dependencies->ledger;
  auto stored = StoredEventList::load(*work.store, pendingEventsKey);
  work.saved = stored.isSaved ? std::optional(stored.events) : std::nullopt;
  work.placed.clear();
  _savedEnd = work.saved ? work.saved->nextOrdinal() : 0;
  // A ledger that was begun goes on, or it would count what it has not seen as lost.
  work.savesLedger = dependencies->savesLedger || !stored.note.empty();
  _pendingEvents.with([&](EventList& events) {
    std::swap(events, stored.events);
    work.ledger->load(stored.note, events.size());
  });
  _loadedStart = start;
}

// Finish the changes left by a run that threw `bad_alloc`.
void EventStorageImpl::makeSubmittedChanges(Work& work) {
  makeChanges(work);
  _isBlockDue = false;
  work.changes = _submitted.takeAll().reversed();
  makeChanges(work);
}

// The queue runs a block again that threw `bad_alloc`: what is made by then is not made twice.
void EventStorageImpl::makeChanges(Work& work) {
  const ReadSection section;  // the changes read their dependencies one by one
  while (!work.changes.empty()) {
    if (!work.isFirstMade) updateMemoryPendingEvents(work, work.changes.first());
    work.isFirstMade = true;
    if (_dependencies->backgroundChecker.isInBackground())
      alignMemoryAndDisk(work, Durability::survivesKill);
    work.isFirstMade = false;
    auto made = work.changes.takeFirst();
    // A removal has hundreds of identifiers, and no tracking call allocated them.
    if (!std::holds_alternative<PendingChange::Removal>(made->content)) _spent.add(std::move(made));
  }
}

void EventStorageImpl::updateMemoryPendingEvents(Work& work, const PendingChange& change) {
  if (const auto* tracked = std::get_if<TrackedEvent>(&change.content)) {
    append(work, work.encoder.encode(*tracked));
  } else if (const auto* record = std::get_if<StoredEvent>(&change.content)) {
    append(work, work.encoder.encode(*record));
  } else {
    remove(work, std::get<PendingChange::Removal>(change.content));
  }
  _isDirty = true;
}

// The ledger changes with the list, so that whoever reads both finds that they agree.
void EventStorageImpl::append(const Work& work, EventHandle event) {
  _pendingEvents.with([&](EventList& events) {
    events.append(std::move(event));
    work.ledger->append();
    ++_appended;
  });
}

void EventStorageImpl::remove(const Work& work, const PendingChange::Removal& removal) {
  auto rest = _pendingEvents.copy();
  const auto take = [&rest](const std::set<std::string>& ids) {
    const auto before = rest.size();
    if (!ids.empty()) rest.remove(ids);
    return before - rest.size();
  };
  RemovedEvents removed{.notEncodable = take(removal.account.notEncodable),
                        .lostOnDisk = take(removal.account.lostOnDisk),
                        .others = take(removal.ids),
                        .wereSent = removal.account.wasSent};
  _pendingEvents.with([&](EventList& events) {
    std::swap(events, rest);
    work.ledger->remove(removed);
  });
}

void EventStorageImpl::flush(Work& work) {
  makeSubmittedChanges(work);
  alignMemoryAndDisk(work, Durability::survivesPowerCut);
  releaseTexts(work);
}

void EventStorageImpl::alignMemoryAndDisk(Work& work, Durability durability) {
  storePendingEvents(work, durability);
  _isDirty = false;
}

void EventStorageImpl::storePendingEvents(Work& work, Durability durability) {
  constexpr std::size_t manyTexts = 512;
  const auto events = _pendingEvents.copy();
  // The stored value is one array: an event without a text leaves it as it was written last.
  if (!events.isEncodable()) return;
  const auto save = [&](Larder::ListEdit edit) {
    const bool isChange = edit.replacesAll || !edit.removed.empty() || !edit.appended.empty();
    auto note = work.savesLedger ? work.ledger->note() : "";
    const bool savesNote = isChange || (work.isNoteDue && note != work.note);
    if (savesNote) edit.note = note;
    auto made = work.store->edit(pendingEventsKey, edit, durability);
    if (savesNote && isSaved(made)) work.note = std::move(note);
    return made;
  };
  // Of an edit that memory ran out on nobody knows how far it came: then all is written anew.
  auto saved = std::exchange(work.saved, std::nullopt);
  auto result = saved ? save(events.editFrom(*saved)) : EditResult{EditOutcome::listIsGone};
  if (result.outcome == EditOutcome::listIsGone) {
    _savedEnd = 0;
    auto edit = events.wholeEdit();
    result = edit ? save(*std::move(edit)) : EditResult{EditOutcome::failed};
  }
  work.isNoteDue = false;
  work.saved = isSaved(result) ? std::optional(events) : std::move(saved);
  if (isSaved(result)) _savedEnd = events.nextOrdinal();
  _isWriteDue = result.outcome != EditOutcome::saved;
  work.placed.insert(work.placed.end(), result.placed.begin(), result.placed.end());
  if (work.placed.size() >= manyTexts) releaseTexts(work);
}

// Many at a time, because each time costs a copy of the chunks that they are in.
void EventStorageImpl::releaseTexts(Work& work) {
  if (work.placed.empty()) return;
  auto events = _pendingEvents.copy();
  const bool areSaved = work.saved && work.saved->isSame(events);
  events.place(std::exchange(work.placed, {}));
  if (areSaved) work.saved = events;
  _pendingEvents.set(std::move(events));
}

}  // namespace kite
