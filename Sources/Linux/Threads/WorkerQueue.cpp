#include <Kite/Linux/LinuxPlatform.h>

#include "Base/CatchingBadAlloc.h"
#include "Linux/Threads/LibraryThread.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace kite::Linux {
namespace {

using Clock = std::chrono::steady_clock;
using Blocks = std::vector<Tempra::Block>;

// Waking a sleeping thread costs the submitter a system call, so a worker that is kept busy polls
// for the next block this long before it sleeps.
constexpr auto lingerTime = std::chrono::microseconds(50);
constexpr std::size_t keptCapacity = 4096;
// So many blocks wake the worker that would not do so each by itself.
constexpr std::size_t mostWaiting = 512;

// A block that finds no memory is tried again, as others may free some soon, but not for ever.
constexpr auto pauseWithoutMemory = std::chrono::milliseconds(50);
constexpr int mostTrials = 1200;

// What the queue and its thread share. Neither waits for the other when the queue ends. One thread
// at a time runs blocks: the worker, or while that sleeps one that it was lent to.
class Worker : public std::enable_shared_from_this<Worker> {
 public:
  explicit Worker(std::string name)
      : _name(std::move(name)),
        _complaint("[KITE] No thread can be started for " + _name + ", its work waits") {}

  void submit(Tempra::Block block) {
    if (!block) return;
    std::unique_lock guard(_mutex);
    const bool hasThread = ensureThread();  // whatever needs memory comes before the block is taken
    _submitted.push_back(std::move(block));
    wake(guard, hasThread);
  }

  void submitSoon(Tempra::Block block) {
    if (!block) return;
    std::unique_lock guard(_mutex);
    const bool isEnough = _submitted.size() + 1 >= mostWaiting;
    const bool hasThread = isEnough && ensureThread();
    _submitted.push_back(std::move(block));
    if (isEnough) wake(guard, hasThread);
  }

  void runWaiting() {
    if (!borrow()) return;
    while (auto block = nextOfBatch()) {
      if (catchingBadAlloc(block)) continue;
      putBack(std::move(block));  // the worker has the patience to try again
      break;
    }
    giveBack();
  }

  void stop() {
    Blocks dropped;
    Blocks droppedFromBatch;
    const std::scoped_lock guard(_mutex, _batchMutex);
    dropped.swap(_submitted);
    droppedFromBatch.swap(_batch);
    _isStopped = true;
    _isWanted.store(true, std::memory_order_release);
    _wakeUp.notify_one();
  }

 private:
  enum class Activity { awake, asleep, lent };

  bool ensureThread() {
    if (_hasThread) return true;
    if (!startThread(_name, [self = shared_from_this()] { self->work(); })) return false;
    _hasThread = true;
    if (_activity == Activity::asleep) _activity = Activity::awake;
    return true;
  }

  // Whoever runs blocks now will see to it.
  void wake(std::unique_lock<std::mutex>& guard, bool hasThread) {
    _isWanted.store(true, std::memory_order_release);
    if (_activity != Activity::asleep) return;
    if (hasThread) return rouse(guard);
    guard.unlock();
    System::live().print(_complaint);
  }

  void rouse(std::unique_lock<std::mutex>& guard) {
    _activity = Activity::awake;
    _rousedAt = Clock::now();
    guard.unlock();
    _wakeUp.notify_one();
  }

  bool borrow() {
    const std::scoped_lock guard(_mutex);
    if (_submitted.empty()) return false;
    if (_activity != Activity::asleep) {
      _isWanted.store(true, std::memory_order_release);  // before it sleeps
      return false;
    }
    _activity = Activity::lent;
    takeBatch();
    return true;
  }

  void putBack(Tempra::Block block) {
    const std::scoped_lock guard(_mutex, _batchMutex);
    if (_isStopped) return;
    _batch[--_nextOfBatch] = std::move(block);
    _isWanted.store(true, std::memory_order_release);
  }

  void giveBack() {
    std::unique_lock guard(_mutex);
    _activity = Activity::asleep;
    if (_isWanted.load(std::memory_order_relaxed) && ensureThread()) rouse(guard);
  }

  void work() {
    while (awaitBatch())
      while (const auto block = nextOfBatch()) run(block);
  }

  void run(const Tempra::Block& block) {
    for (int trial = 1; !catchingBadAlloc(block); ++trial) {
      if (isStoppedWithin(pauseWithoutMemory)) return;
      if (trial == mostTrials) return System::live().print("[KITE] No memory: work was given up");
    }
  }

  bool isStoppedWithin(Clock::duration delay) {
    std::unique_lock guard(_mutex);
    return _wakeUp.wait_for(guard, delay, [this] { return _isStopped; });
  }

  bool awaitBatch() {
    const auto idleSince = Clock::now();
    if (_isBusy) linger(idleSince);
    std::unique_lock guard(_mutex);
    _rousedAt = Clock::now();
    while (!_isWanted.load(std::memory_order_relaxed) || _activity == Activity::lent) {
      if (_activity == Activity::awake) _activity = Activity::asleep;
      _wakeUp.wait(guard);
    }
    _activity = Activity::awake;
    _isBusy = _rousedAt - idleSince < lingerTime;
    takeBatch();
    return !_isStopped;
  }

  void linger(Clock::time_point since) const {
    while (!_isWanted.load(std::memory_order_acquire) && Clock::now() - since < lingerTime)
      std::this_thread::yield();
  }

  // With `_mutex`. What is left of a batch comes first.
  void takeBatch() {
    const std::scoped_lock guard(_batchMutex);
    if (!_batch.empty()) return;
    _isWanted.store(false, std::memory_order_relaxed);
    _batch.swap(_submitted);
    _nextOfBatch = 0;
  }

  // The batch has a lock of its own, which submitters never touch: only the end of the queue
  // competes for it.
  Tempra::Block nextOfBatch() {
    const std::scoped_lock guard(_batchMutex);
    if (_nextOfBatch < _batch.size()) return std::move(_batch[_nextOfBatch++]);
    if (_batch.capacity() > keptCapacity) Blocks().swap(_batch);
    _batch.clear();
    return {};
  }

  const std::string _name;
  const std::string _complaint;

  std::mutex _mutex;
  std::condition_variable _wakeUp;
  Blocks _submitted;
  Activity _activity = Activity::asleep;
  Clock::time_point _rousedAt;
  bool _hasThread = false;
  bool _isStopped = false;
  std::atomic<bool> _isWanted = false;  // the worker: it is to take what was submitted

  std::mutex _batchMutex;
  Blocks _batch;
  std::size_t _nextOfBatch = 0;

  bool _isBusy = false;  // the worker's own
};

class WorkerQueue final : public Tempra::Queue {
 public:
  explicit WorkerQueue(std::string name) : _worker(std::make_shared<Worker>(std::move(name))) {}
  WorkerQueue(const WorkerQueue&) = delete;
  WorkerQueue& operator=(const WorkerQueue&) = delete;
  ~WorkerQueue() override { _worker->stop(); }

  void run(Tempra::Block block) override { _worker->submit(std::move(block)); }
  void runSoon(Tempra::Block block) override { _worker->submitSoon(std::move(block)); }
  void runWaiting() override {
    const auto worker = _worker;  // a block may end the queue
    worker->runWaiting();
  }

 private:
  const std::shared_ptr<Worker> _worker;
};

}  // namespace

std::shared_ptr<Tempra::Queue> workerQueue(std::string name) {
  return std::make_shared<WorkerQueue>(std::move(name));
}

}  // namespace kite::Linux
