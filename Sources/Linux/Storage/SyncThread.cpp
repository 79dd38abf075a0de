#include "Linux/Storage/SyncThread.h"

#include "Linux/Threads/LibraryThread.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace kite::Linux {

namespace {

// Long enough that a start's writes are one sync.
constexpr std::chrono::milliseconds pause{250};

}  // namespace

struct SyncThread::Shared {
  std::mutex mutex;
  std::condition_variable changed;
  std::shared_ptr<LogFile> file;  ///< not yet synced
  bool isRunning = false;
  bool isEnded = false;
};

SyncThread::SyncThread() : _shared(std::make_shared<Shared>()), _process(::getpid()) {}

SyncThread::~SyncThread() {
  // A forked child has neither the thread nor, for sure, a free lock.
  if (::getpid() != _process) return;
  const std::scoped_lock guard(_shared->mutex);
  _shared->isEnded = true;
  _shared->changed.notify_one();
}

void SyncThread::syncSoon(std::shared_ptr<LogFile> file) {
  std::unique_lock guard(_shared->mutex);
  if (std::exchange(_shared->file, std::move(file))) return;
  if (!_shared->isRunning)
    _shared->isRunning = startThread("kite.medium", [shared = _shared] { run(*shared); });
  if (_shared->isRunning) return _shared->changed.notify_one();
  // Without a thread there is nobody else to do it.
  const auto late = std::exchange(_shared->file, nullptr);
  guard.unlock();
  late->sync();
}

void SyncThread::run(Shared& shared) {
  std::unique_lock guard(shared.mutex);
  while (true) {
    shared.changed.wait(guard, [&] { return shared.file || shared.isEnded; });
    if (!shared.file) return;
    shared.changed.wait_for(guard, pause, [&] { return shared.isEnded; });
    const auto file = std::exchange(shared.file, nullptr);
    guard.unlock();
    file->sync();
    guard.lock();
  }
}

}  // namespace kite::Linux
