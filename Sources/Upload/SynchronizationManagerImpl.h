#pragma once

#include <Kite/Platform/System.h>

#include "Base/Guarded.h"
#include "Base/Started.h"
#include "Queue/EventList.h"
#include "Upload/SynchronizationManager.h"
#include "Upload/UploadLog.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>

namespace kite {

/// Every sync runs on `syncQueue`, inside a background task, and keeps the queue blocked until its
/// upload has answered: one batch at most is under way.
class SynchronizationManagerImpl final
    : public SynchronizationManager,
      public std::enable_shared_from_this<SynchronizationManagerImpl> {
 public:
  static constexpr Tempra::Duration autoSyncDefaultInterval{2};
  static constexpr std::size_t batchLimit = 500;

  explicit SynchronizationManagerImpl(System system = System::live());
  ~SynchronizationManagerImpl() override;
  SynchronizationManagerImpl(const SynchronizationManagerImpl&) = delete;
  SynchronizationManagerImpl& operator=(const SynchronizationManagerImpl&) = delete;

  void start(SynchronizationManagerDependencies dependencies) override;
  void uploadBatch(std::function<bool()> isWanted, std::function<void(UploadResult)> done) override;
  UploadLog& uploads() override { return *_uploads; }

  /// Asks for one sync and returns at once. With `suspendAfterSync` the manager suspends itself
  /// once that sync has sent a batch or found nothing to send.
  void sync(bool suspendAfterSync);

  /// While suspended, syncs send nothing.
  bool isSuspended() const { return _isSuspended; }
  /// Every change asks for a sync.
  void setSuspended(bool value);

  void startAutoSync();
  void onSessionEnd();

 private:
  using CompletionBlock = std::function<void()>;

  void setupNotificationHandlers(const SessionListener& sessionListener);
  EventList::Reading readBatch() const;
  template <class Body>
  void runOnQueue(Body body);
  void performSync(bool suspendAfterSync, CompletionBlock completionBlock);
  void awaitRemovals() const;
  void uploadOldest(std::function<void(UploadResult)> done);

  System _system;
  Started<SynchronizationManagerDependencies> _dependencies{
      "Call start before trying to use the synch manager", {"SynchronizationManagerImpl", "", 0}};
  Guarded<Tempra::Cancel> _cancellable;
  Guarded<std::optional<CancelToken>> _sessionStartToken;
  Guarded<std::optional<CancelToken>> _sessionEndToken;
  std::atomic<bool> _isSuspended{true};
  const std::shared_ptr<UploadLog> _uploads = std::make_shared<UploadLog>();
};

static_assert(std::is_default_constructible_v<SynchronizationManagerImpl>);

}  // namespace kite
