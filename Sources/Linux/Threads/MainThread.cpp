#include <Kite/Linux/LinuxPlatform.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace kite::Linux {
namespace {

/// A body that somebody waits for. The loop and a wait both come across it; the first one runs it.
class Task {
 public:
  explicit Task(const std::function<void()>& body) : _body([&body] { body(); }) {}

  void run() {
    if (!_isTaken.exchange(true)) _body();
  }
  /// Fails with a `future_error` when the task is dropped unrun.
  std::future<void> done() { return _body.get_future(); }

 private:
  std::packaged_task<void()> _body;
  std::atomic<bool> _isTaken = false;
};

/// Where threads wait for the end of something, and run what others want run there meanwhile.
class WaitingRoom : public std::enable_shared_from_this<WaitingRoom> {
 public:
  // The loop may drop the task, so it is not kept alive here.
  void add(std::weak_ptr<Task> task) {
    const std::scoped_lock guard(_mutex);
    _tasks.push_back(std::move(task));
    _changed.notify_all();
  }
  void removeExpired() {
    const std::scoped_lock guard(_mutex);
    std::erase_if(_tasks, [](const auto& task) { return task.expired(); });
  }

  void waitFor(const std::function<void(std::function<void()>)>& begin, Tempra::Duration atMost) {
    const auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                          std::min(atMost, Tempra::Duration(longestWait)));
    const auto isEnded = std::make_shared<bool>(false);
    begin([self = shared_from_this(), isEnded] {
      const std::scoped_lock guard(self->_mutex);
      *isEnded = true;
      self->_changed.notify_all();
    });
    std::unique_lock guard(_mutex);
    while (!*isEnded && Clock::now() < until) {
      if (!_tasks.empty()) {
        runFirst(guard);
      } else {
        _changed.wait_until(guard, until);
      }
    }
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr double longestWait = 1e9;  // seconds

  void runFirst(std::unique_lock<std::mutex>& guard) {
    const auto task = _tasks.front().lock();
    _tasks.pop_front();
    guard.unlock();
    if (task) task->run();
    guard.lock();
  }

  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<std::weak_ptr<Task>> _tasks;
};

class InlineMainThread final : public MainThread {
 public:
  void runSynchronously(const std::function<void()>& body) override { body(); }
  void waitFor(const std::function<void(std::function<void()>)>& begin,
               Tempra::Duration atMost) override {
    std::make_shared<WaitingRoom>()->waitFor(begin, atMost);
  }
};

class AttachedMainThread final : public MainThread {
 public:
  using Post = std::function<void(std::function<void()>)>;

  explicit AttachedMainThread(Post post) : _post(std::move(post)) {}

  void runSynchronously(const std::function<void()>& body) override {
    if (isCaller()) return body();
    auto task = std::make_shared<Task>(body);
    auto done = task->done();
    _waiting->add(task);
    _post([task = std::move(task)] { task->run(); });
    try {
      done.get();
    } catch (const std::future_error&) {
      body();  // the loop has ended and dropped the task
    }
    _waiting->removeExpired();
  }

  void waitFor(const std::function<void(std::function<void()>)>& begin,
               Tempra::Duration atMost) override {
    const auto room = isCaller() ? _waiting : std::make_shared<WaitingRoom>();
    room->waitFor(begin, atMost);
  }

 private:
  bool isCaller() const { return std::this_thread::get_id() == _thread; }

  const Post _post;
  const std::thread::id _thread = std::this_thread::get_id();
  const std::shared_ptr<WaitingRoom> _waiting = std::make_shared<WaitingRoom>();
};

}  // namespace

std::shared_ptr<MainThread> inlineMainThread() { return std::make_shared<InlineMainThread>(); }

std::shared_ptr<MainThread> attachedMainThread(std::function<void(std::function<void()>)> post) {
  return std::make_shared<AttachedMainThread>(std::move(post));
}

}  // namespace kite::Linux
