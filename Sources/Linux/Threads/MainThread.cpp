#include <Kite/Linux/LinuxPlatform.h>

#include <future>
#include <thread>
#include <utility>

namespace kite::Linux {
namespace {

class InlineMainThread final : public MainThread {
 public:
  void runSynchronously(const std::function<void()>& body) override { body(); }
};

class AttachedMainThread final : public MainThread {
 public:
  using Post = std::function<void(std::function<void()>)>;

  explicit AttachedMainThread(Post post) : _post(std::move(post)) {}

  void runSynchronously(const std::function<void()>& body) override {
    if (std::this_thread::get_id() == _thread) return body();
    auto task = std::make_shared<std::packaged_task<void()>>([&body] { body(); });
    auto done = task->get_future();
    _post([task = std::move(task)] { (*task)(); });
    try {
      done.get();
    } catch (const std::future_error&) {
      body();  // the loop has ended and dropped the task
    }
  }

 private:
  const Post _post;
  const std::thread::id _thread = std::this_thread::get_id();
};

}  // namespace

std::shared_ptr<MainThread> inlineMainThread() { return std::make_shared<InlineMainThread>(); }

std::shared_ptr<MainThread> attachedMainThread(std::function<void(std::function<void()>)> post) {
  return std::make_shared<AttachedMainThread>(std::move(post));
}

}  // namespace kite::Linux
