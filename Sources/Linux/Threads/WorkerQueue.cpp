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

// A block that finds no memory is tried again, as others may free some soon, but not for ever.
constexpr auto pauseWithoutMemory = std::chrono::milliseconds(50);
constexpr int mostTrials = 1200;

// Whether blocks come so fast that they are better taken in batches: taking each at once would move
// the cache lines that both threads use between their cores every time.
class Flood {
 public:
  static constexpr auto napTime = std::chrono::microseconds(50);

  void count(std::size_t blocks) { _blocks += blocks; }
  bool isOn(Clock::time_point now) {
    if (now - _spanBegin < span) return _isOn;
    _isOn = _blocks >= (_isOn ? 1 : fewest);
    _spanBegin = now;
    _blocks = 0;
    return _isOn;
  }

 private:
  static constexpr auto span = 2 * napTime;
  static constexpr std::size_t fewest = 16;

  Clock::time_point _spanBegin;
  std::size_t _blocks = 0;
  bool _isOn = false;
};

// What the queue and its thread share. Neither waits for the other when the queue ends.
class Worker : public std::enable_shared_from_this<Worker> {
 public:
  explicit Worker(std::string name)
      : _name(std::move(name)),
        _complaint("[KITE] No thread can be started for " + _name + ", its work waits") {}

  // Whatever needs memory comes before the block is taken, so that a failure leaves it untaken.
  void submit(Tempra::Block block) {
    if (!block) return;
    std::unique_lock guard(_mutex);
    const bool hasThread = ensureThread();
    _submitted.push_back(std::move(block));
    _hasSubmitted.store(true, std::memory_order_release);
    if (_activity == Activity::awake) return;
    hasThread ? rouse(guard) : complain(guard);
  }

  void stop() {
    Blocks dropped;
    Blocks droppedFromBatch;
    const std::scoped_lock guard(_mutex, _batchMutex);
    dropped.swap(_submitted);
    droppedFromBatch.swap(_batch);
    _isStopped = true;
    _hasSubmitted.store(true, std::memory_order_release);
    _wakeUp.notify_one();
  }

 private:
  enum class Activity { notStarted, awake, asleep };

  bool ensureThread() {
    if (_activity != Activity::notStarted) return true;
    if (!startThread(_name, [self = shared_from_this()] { self->work(); })) return false;
    _activity = Activity::awake;
    return true;
  }

  void rouse(std::unique_lock<std::mutex>& guard) {
    _activity = Activity::awake;
    _rousedAt = Clock::now();
    guard.unlock();
    _wakeUp.notify_one();
  }

  void complain(std::unique_lock<std::mutex>& guard) const {
    guard.unlock();
    System::live().print(_complaint);
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
    if (_flood.isOn(idleSince)) {
      std::this_thread::sleep_for(Flood::napTime);
    } else if (_isBusy) {
      linger(idleSince);
    }
    std::unique_lock guard(_mutex);
    _rousedAt = Clock::now();
    while (_submitted.empty() && !_isStopped) {
      _activity = Activity::asleep;
      _wakeUp.wait(guard);
    }
    _activity = Activity::awake;
    _isBusy = _rousedAt - idleSince < lingerTime;
    _hasSubmitted.store(false, std::memory_order_relaxed);
    const std::scoped_lock batchGuard(_batchMutex);
    _batch.swap(_submitted);
    _nextOfBatch = 0;
    _flood.count(_batch.size());
    return !_isStopped;
  }

  void linger(Clock::time_point since) const {
    while (!_hasSubmitted.load(std::memory_order_acquire) && Clock::now() - since < lingerTime)
      std::this_thread::yield();
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
  Activity _activity = Activity::notStarted;
  Clock::time_point _rousedAt;
  bool _isStopped = false;
  std::atomic<bool> _hasSubmitted = false;

  std::mutex _batchMutex;
  Blocks _batch;
  std::size_t _nextOfBatch = 0;

  // The worker's own.
  bool _isBusy = false;
  Flood _flood;
};

class WorkerQueue final : public Tempra::Queue {
 public:
  explicit WorkerQueue(std::string name) : _worker(std::make_shared<Worker>(std::move(name))) {}
  WorkerQueue(const WorkerQueue&) = delete;
  WorkerQueue& operator=(const WorkerQueue&) = delete;
  ~WorkerQueue() override { _worker->stop(); }

  void run(Tempra::Block block) override { _worker->submit(std::move(block)); }

 private:
  const std::shared_ptr<Worker> _worker;
};

}  // namespace

std::shared_ptr<Tempra::Queue> workerQueue(std::string name) {
  return std::make_shared<WorkerQueue>(std::move(name));
}

}  // namespace kite::Linux
