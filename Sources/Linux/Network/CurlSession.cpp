#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Network/CurlTransfer.h"
#include "Linux/Network/OpenSSL.h"
#include "Linux/Threads/LibraryThread.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <list>
#include <mutex>
#include <string_view>
#include <utility>

namespace kite::Linux {
namespace {

constexpr int forever = std::numeric_limits<int>::max();
constexpr const char* ended = "The session ended before the reply came";

// Tried again after a failure: memory may have run out.
bool initializeCurl() {
  static std::mutex mutex;
  static bool isReady = false;
  const std::scoped_lock guard(mutex);
  if (isReady) return true;
  prepareOpenSSL();
  isReady = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return isReady;
}

/// The thread that a session's requests run on, and the connections that it keeps. It starts with
/// the first request and sleeps while there is none.
class Loop : public std::enable_shared_from_this<Loop> {
 public:
  explicit Loop(std::optional<std::filesystem::path> caFile) : _caFile(std::move(caFile)) {}

  /// Any thread. An exchange that cannot be begun any more completes before this returns.
  void submit(Exchange exchange) {
    // Before the first handle is made: libcurl would come to OpenSSL by itself.
    if (::getpid() == _process) initializeCurl();
    Transfers transfer;
    transfer.emplace_back(std::move(exchange));
    if (const char* const refusal = enqueue(transfer)) transfer.front().fail(refusal);
  }

  /// Ends the thread, which completes all that is under way with an error. Does not wait for it.
  void stop() {
    if (::getpid() != _process) return;
    const std::scoped_lock guard(_mutex);
    _isStopped = true;
    if (_hasThread) curl_multi_wakeup(_multi.get());
  }

 private:
  // A list's elements change hands without a need for memory, so that none gets lost on its way.
  using Transfers = std::list<CurlTransfer>;

  const char* enqueue(Transfers& transfer) {
    // A forked child has no thread, and another thread of the parent may have held the lock.
    if (::getpid() != _process) return "The session belongs to another process";
    const std::scoped_lock guard(_mutex);
    if (_isStopped) return ended;
    if (!ensureThread()) return "The session's thread cannot be started";
    _submitted.splice(_submitted.end(), transfer);
    curl_multi_wakeup(_multi.get());
    return nullptr;
  }

  bool ensureThread() {
    if (_hasThread) return true;
    if (!_multi && initializeCurl()) _multi.reset(curl_multi_init());
    if (_multi)
      _hasThread = startThread("kite.network", [self = shared_from_this()] { self->work(); });
    return _hasThread;
  }

  void work() {
    while (admitSubmitted()) {
      perform();
      finishDone();
      curl_multi_poll(_multi.get(), nullptr, 0, untilDeadline(), nullptr);
    }
    failAll(ended);
    for (const auto& transfer : takeSubmitted()) transfer.fail(ended);
    _multi.reset();
  }

  /// Milliseconds until the time of some transfer has run out.
  int untilDeadline() const {
    const auto now = std::chrono::steady_clock::now();
    std::int64_t least = forever;
    for (const auto& transfer : _transfers) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(transfer.deadline() - now);
      least = std::clamp<std::int64_t>(left.count(), 1, least);
    }
    return static_cast<int>(least);
  }

  Transfers takeSubmitted() {
    const std::scoped_lock guard(_mutex);
    return std::exchange(_submitted, {});
  }

  bool admitSubmitted() {
    {
      const std::scoped_lock guard(_mutex);
      if (_isStopped) return false;
    }
    auto admitted = takeSubmitted();
    while (!admitted.empty()) {
      Transfers first;
      first.splice(first.begin(), admitted, admitted.begin());
      admit(std::move(first));
    }
    return true;
  }

  void admit(Transfers transfer) {
    auto& begun = transfer.front();
    if (const auto fault = begun.prepare(_caFile)) return begun.fail(*fault);
    const auto added = curl_multi_add_handle(_multi.get(), begun.handle());
    if (added != CURLM_OK) return begun.fail(curl_multi_strerror(added));
    _transfers.splice(_transfers.end(), transfer);
  }

  void perform() {
    int running = 0;
    const auto performed = curl_multi_perform(_multi.get(), &running);
    if (performed != CURLM_OK) failAll(curl_multi_strerror(performed));
  }

  void finishDone() {
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(_multi.get(), &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      const auto outcome = message->data.result;
      const auto found = std::ranges::find(_transfers, message->easy_handle, &CurlTransfer::handle);
      Transfers done;
      done.splice(done.begin(), _transfers, found);
      curl_multi_remove_handle(_multi.get(), done.front().handle());
      done.front().finish(outcome);
    }
  }

  // Completions come first: taking a connection down may take its time.
  void failAll(std::string_view description) {
    const auto failed = std::exchange(_transfers, {});
    for (const auto& transfer : failed) transfer.fail(description);
    for (const auto& transfer : failed) curl_multi_remove_handle(_multi.get(), transfer.handle());
  }

  const std::optional<std::filesystem::path> _caFile;
  const pid_t _process = ::getpid();

  std::mutex _mutex;  // guards the four below; the thread alone uses `_multi` otherwise
  Transfers _submitted;
  std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> _multi{nullptr, &curl_multi_cleanup};
  bool _hasThread = false;
  bool _isStopped = false;

  Transfers _transfers;  // the thread's own
};

class DataTask final : public URLSessionDataTask {
 public:
  DataTask(std::shared_ptr<Loop> loop, Exchange exchange)
      : _loop(std::move(loop)), _exchange(std::move(exchange)) {}

  void resume() override {
    if (!_isResumed.exchange(true)) _loop->submit(std::move(_exchange));
  }

 private:
  const std::shared_ptr<Loop> _loop;
  Exchange _exchange;
  std::atomic<bool> _isResumed = false;
};

class Session final : public URLSession {
 public:
  explicit Session(std::optional<std::filesystem::path> caFile)
      : _loop(std::make_shared<Loop>(std::move(caFile))) {}
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() override { _loop->stop(); }

  std::shared_ptr<URLSessionDataTask> dataTask(URLRequest request, Completion completion) override {
    return std::make_shared<DataTask>(_loop, Exchange{std::move(request), std::move(completion)});
  }

 private:
  const std::shared_ptr<Loop> _loop;
};

}  // namespace

std::shared_ptr<URLSession> curlSession(std::optional<std::filesystem::path> caFile) {
  return std::make_shared<Session>(std::move(caFile));
}

}  // namespace kite::Linux
