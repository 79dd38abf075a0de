#pragma once

#include <Kite/BackgroundTaskScheduler.h>
#include <Kite/Platform/Tempra.h>
#include <Kite/SessionListener.h>

#include <memory>

namespace kite {

class EventStorage;
class KiteAPIManager;

struct SynchronizationManagerDependencies {
  std::shared_ptr<EventStorage> storage;
  SessionListener sessionListener;
  BackgroundTaskScheduler backgroundTaskScheduler;
  std::shared_ptr<KiteAPIManager> apiManager;
  std::shared_ptr<Tempra::Scheduler> scheduler;
  std::shared_ptr<Tempra::Queue> syncQueue;
  bool syncOnSessionEnd;
};

/// Decides when pending events are uploaded: every two seconds while a session runs, one batch at a
/// time.
class SynchronizationManager {
 public:
  virtual ~SynchronizationManager() = default;
  virtual void start(SynchronizationManagerDependencies dependencies) = 0;
};

}  // namespace kite
