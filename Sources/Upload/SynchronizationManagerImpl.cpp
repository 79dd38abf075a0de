#include "Upload/SynchronizationManagerImpl.h"

#include "Base/CatchingBadAlloc.h"
#include "Base/Semaphore.h"
#include "Base/Weakly.h"
#include "Queue/EventStorage.h"
#include "Sessions/SessionEndHandler.h"
#include "Upload/KiteAPIManager.h"

#include <set>
#include <string>
#include <utility>

namespace kite {
namespace {

/// One background task, ended once: by its expiration, by whoever it was begun for, or when nobody
/// is left who would.
class BackgroundTask : public std::enable_shared_from_this<BackgroundTask> {
 public:
  explicit BackgroundTask(BackgroundTaskScheduler scheduler) : _scheduler(std::move(scheduler)) {}
  BackgroundTask(const BackgroundTask&) = delete;
  BackgroundTask& operator=(const BackgroundTask&) = delete;
  ~BackgroundTask() { end(); }

  void begin() {
    _identifier.set(_scheduler.beginBackgroundTask(
        weakly(weak_from_this(), [](BackgroundTask& task) { task.end(); })));
  }
  void end() {
    const auto identifier = _identifier.with([](auto& box) { return std::exchange(box, {}); });
    if (identifier) catchingBadAlloc([&] { _scheduler.endBackgroundTask(*identifier); });
  }

 private:
  BackgroundTaskScheduler _scheduler;
  Guarded<std::optional<UIBackgroundTaskIdentifier>> _identifier;
};

/// The end of one sync: told by whoever completes it, or when nobody is left who would, for want of
/// memory.
class SyncEnd {
 public:
  SyncEnd(std::shared_ptr<BackgroundTask> task, std::shared_ptr<Semaphore> answered)
      : _task(std::move(task)), _answered(std::move(answered)) {}
  SyncEnd(const SyncEnd&) = delete;
  SyncEnd& operator=(const SyncEnd&) = delete;
  ~SyncEnd() { tell(); }

  void tell() {
    _task->end();
    _answered->release();
  }

 private:
  const std::shared_ptr<BackgroundTask> _task;
  const std::shared_ptr<Semaphore> _answered;
};

std::set<std::string> idsOf(const EventBatch& batch) {
  std::set<std::string> ids;
  for (const auto& event : batch) ids.insert(event->id());
  return ids;
}

RemovalAccount accountOf(const EventBatch& batch, const UploadReport& report) {
  RemovalAccount account;
  account.wasSent = !report.error;
  for (const auto& event : batch) {
    if (event->isLost()) account.lostOnDisk.insert(event->id());
    if (event->encodingError()) account.notEncodable.insert(event->id());
  }
  return account;
}

UploadResult resultOf(bool success, const UploadReport& report) {
  if (success) return UploadResult::finished;
  return report.isUnreachable ? UploadResult::unreachable : UploadResult::refused;
}

}  // namespace

SynchronizationManagerImpl::SynchronizationManagerImpl(System system)
    : _system(std::move(system)) {}

SynchronizationManagerImpl::~SynchronizationManagerImpl() {
  const auto dependencies = _dependencies.unwrapped();
  if (!dependencies) return;
  const SessionListener& sessions = dependencies->sessionListener;
  if (const auto token = _sessionStartToken.take()) sessions.detachSessionStart(*token);
  if (const auto token = _sessionEndToken.take()) sessions.detachSessionEnd(*token);
}

void SynchronizationManagerImpl::start(SynchronizationManagerDependencies dependencies) {
  const ReadSection section;  // the timer of before is cancelled with its scheduler still there
  const SessionListener sessionListener = dependencies.sessionListener;
  _dependencies.set(std::move(dependencies));
  setupNotificationHandlers(sessionListener);
  startAutoSync();
}

void SynchronizationManagerImpl::setupNotificationHandlers(const SessionListener& sessionListener) {
  _sessionStartToken.set(sessionListener.onSessionStart(
      weakly(weak_from_this(), [](SynchronizationManagerImpl& self) { self.startAutoSync(); })));
  _sessionEndToken.set(sessionListener.onSessionEnd(SessionEndHandler{
      SessionEndStep::upload,
      weakly(weak_from_this(), [](SynchronizationManagerImpl& self) { self.onSessionEnd(); })}));
}

void SynchronizationManagerImpl::setSuspended(bool value) {
  if (_isSuspended.exchange(value) == value) return;
  // For want of memory the timer asks instead; who resumes must come to schedule it.
  catchingBadAlloc([this] { sync(/*suspendAfterSync=*/false); });
}

template <class Body>
void SynchronizationManagerImpl::runOnQueue(Body body) {
  const auto dependencies = _dependencies.get();
  const auto task = std::make_shared<BackgroundTask>(dependencies->backgroundTaskScheduler);
  task->begin();
  dependencies->syncQueue->run([weakSelf = weak_from_this(), task, body = std::move(body)] {
    const auto answered = std::make_shared<Semaphore>();
    if (const auto self = weakSelf.lock())
      body(*self, [end = std::make_shared<SyncEnd>(task, answered)] { end->tell(); });
    // Without a manager nothing releases the queue any more: there is nothing left to sync.
    answered->acquire();
  });
}

void SynchronizationManagerImpl::sync(bool suspendAfterSync) {
  runOnQueue([suspendAfterSync](SynchronizationManagerImpl& self, CompletionBlock end) {
    self.performSync(suspendAfterSync, std::move(end));
  });
}

void SynchronizationManagerImpl::uploadBatch(std::function<bool()> isWanted,
                                             std::function<void(UploadResult)> done) {
  runOnQueue([isWanted = std::move(isWanted), done = std::move(done)](
                 SynchronizationManagerImpl& self, CompletionBlock end) {
    if (isWanted()) self.awaitRemovals();
    if (!isWanted()) return end();
    self.uploadOldest([done, end = std::move(end)](UploadResult result) {
      end();
      done(result);
    });
  });
}

/// Returns when the storage has removed what was taken before, or will never do it.
void SynchronizationManagerImpl::awaitRemovals() const {
  const auto removed = std::make_shared<Semaphore>();
  std::shared_ptr<void> block(nullptr, [removed](void*) { removed->release(); });
  _dependencies->storage->persist([block = std::move(block)](bool) {});
  removed->acquire();
}

EventList::Reading SynchronizationManagerImpl::readBatch() const {
  EventList::Reading batch = Failure{std::string("no memory")};
  catchingBadAlloc([&] { batch = _dependencies->storage->pendingEvents().first(batchLimit); });
  return batch;
}

void SynchronizationManagerImpl::performSync(bool suspendAfterSync,
                                             CompletionBlock completionBlock) {
  if (isSuspended()) return completionBlock();
  uploadOldest([weakSelf = weak_from_this(), suspendAfterSync,
                completionBlock = std::move(completionBlock)](UploadResult result) {
    const auto self = weakSelf.lock();
    const bool isDone = result == UploadResult::finished || result == UploadResult::nothingPending;
    if (self && isDone) self->setSuspended(suspendAfterSync);
    completionBlock();
  });
}

void SynchronizationManagerImpl::uploadOldest(std::function<void(UploadResult)> done) {
  auto batch = readBatch();
  if (!batch) {
    _system.print("[KITE] ❌ ERROR: the pending events cannot be read: " + batch.error());
    return done(UploadResult::notReadable);
  }
  if (batch->empty()) return done(UploadResult::nothingPending);
  const auto dependencies = _dependencies.get();
  dependencies->apiManager->send(
      *std::move(batch), [uploads = _uploads, storage = dependencies->storage,
                          print = _system.print, done = std::move(done)](
                             const EventBatch& events, bool success,
                             const std::optional<UploadError>& error, const UploadReport& report) {
        auto told = report;
        told.pending = storage->status().ledger.pending;
        if (success) {
          storage->removeEvents(idsOf(events), accountOf(events, report));
        } else {
          print("[KITE] ❌ ERROR: " + (error ? describe(*error) : "request failed with no error"));
        }
        uploads->ended(told);
        done(resultOf(success, report));
      });
}

void SynchronizationManagerImpl::startAutoSync() {
  const auto scheduler = _dependencies->scheduler;
  if (const auto cancel = _cancellable.copy()) cancel();
  setSuspended(true);
  setSuspended(false);
  _cancellable.set(scheduler->schedule(
      autoSyncDefaultInterval, autoSyncDefaultInterval,
      weakly(weak_from_this(),
             [](SynchronizationManagerImpl& self) { self.sync(/*suspendAfterSync=*/false); })));
}

void SynchronizationManagerImpl::onSessionEnd() {
  if (_dependencies->syncOnSessionEnd) return sync(/*suspendAfterSync=*/false);
  if (const auto cancel = _cancellable.copy()) cancel();
  setSuspended(true);
}

}  // namespace kite
