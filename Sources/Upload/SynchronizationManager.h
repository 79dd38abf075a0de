#pragma once

#include <Kite/BackgroundTaskScheduler.h>
#include <Kite/Platform/Tempra.h>
#include <Kite/SessionListener.h>

#include <functional>
#include <memory>

namespace kite {

class EventStorage;
class KiteAPIManager;
class UploadLog;

struct SynchronizationManagerDependencies {
  std::shared_ptr<EventStorage> storage;
  SessionListener sessionListener;
  BackgroundTaskScheduler backgroundTaskScheduler;
  std::shared_ptr<KiteAPIManager> apiManager;
  std::shared_ptr<Tempra::Scheduler> scheduler;
  std::shared_ptr<Tempra::Queue> syncQueue;
  bool syncOnSessionEnd;
};

/// What the upload of one batch came to.
enum class UploadResult {
  finished,  ///< the batch is on its way out of the queue
  nothingPending,
  unreachable,  ///< no endpoint answered
  refused,
  notReadable,  ///< from the disk
};

/// Decides when pending events are uploaded: every two seconds while a session runs, one batch at a
/// time.
class SynchronizationManager {
 public:
  virtual ~SynchronizationManager() = default;
  virtual void start(SynchronizationManagerDependencies dependencies) = 0;

  /// Uploads the oldest batch on `syncQueue`, suspended or not, when all earlier batches that were
  /// taken are removed; unless by then it is not wanted any more. Then nobody is told, else `done`
  /// is called on a thread of the library's.
  virtual void uploadBatch(std::function<bool()> isWanted,
                           std::function<void(UploadResult)> done) = 0;
  virtual UploadLog& uploads() = 0;
};

}  // namespace kite
