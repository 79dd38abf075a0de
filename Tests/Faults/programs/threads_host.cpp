// A host that makes trouble with threads and memory, one scenario a run:
//
//   threads_host --does crowd --threads 2000 --events 100      all threads track at the same time
//   threads_host --does everything --threads 64 --rounds 200   all operations, sessions and
//   consents threads_host --does end --ends destroy|exit|quick_exit|abort|throw
//                          tracks, says so, and ends when a line comes in: an upload is under way
//                          then
//   threads_host --does without-threads --first N              threads from the Nth on cannot be
//   made threads_host --does without-memory --at N [--anywhere 1]   the Nth allocation fails once
//
// Events are user actions with a stream and a serial number. Recorded in the background, so that
// what has settled is on the disk. The answer is one line at the end, before that one at "end".

#include "HostParts.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <latch>
#include <thread>
#include <vector>

namespace {

std::atomic<long> threadsLeft{-1};      // below 0: without a limit
std::atomic<long> allocationsLeft{-1};  // until the one that fails; below 0: none does
std::atomic<bool> isEveryThreadMeant{false};
thread_local bool isMeant = false;

bool isTurn() {
  if (allocationsLeft.load(std::memory_order_relaxed) < 0) return false;
  if (!isMeant && !isEveryThreadMeant.load(std::memory_order_relaxed)) return false;
  return allocationsLeft.fetch_sub(1) == 0;
}

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*body)(void*), void* argument) {
  static const auto original =
      reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
  const long left = threadsLeft.load();
  if (left == 0) return EAGAIN;
  if (left > 0) --threadsLeft;
  return original(thread, attributes, body, argument);
}

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (isTurn()) throw std::bad_alloc();
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace kite::faults {
namespace {

class ThreadsHost {
 public:
  explicit ThreadsHost(Options options) : _options(std::move(options)) {}

  void run() {
    const auto does = _options.text("does");
    if (does == "crowd") return crowd();
    if (does == "everything") return everything();
    if (does == "end") return end(_options.text("ends"));
    if (does == "without-threads") return withoutThreads();
    if (does == "without-memory") return withoutMemory();
    throw std::runtime_error("unknown scenario " + does);
  }

 private:
  long number(const char* name) const { return static_cast<long>(_options.number(name, 0)); }

  void track(const std::string& stream, long from, long count) {
    for (long serial = from; serial < from + count; ++serial)
      _kite->trackUserAction("proof", {{"serial", serial}, {"stream", stream}});
  }

  /// Runs `body(index)` on so many threads, which begin together.
  template <class Body>
  static void together(long count, Body body) {
    std::latch begin(count);
    std::vector<std::thread> threads;
    for (long i = 0; i < count; ++i) {
      threads.emplace_back([&, i] {
        begin.arrive_and_wait();
        body(i);
      });
    }
    for (auto& thread : threads) thread.join();
  }

  void crowd() {
    start();
    together(number("threads"), [&](long i) { track(std::to_string(i), 0, number("events")); });
    _parts.settle();
    reply("");
  }

  void everything() {
    start();
    together(number("threads"), [&](long i) {
      for (long round = 0; round < number("rounds"); ++round) operate(i, round);
    });
    _parts.application().didEnterBackground();
    track("last", 0, 1);  // writes what the foreground left in memory
    _parts.settle();
    reply("");
  }

  void operate(long thread, long round) {
    track(std::to_string(thread), round, 1);
    switch ((thread + round) % 12) {
      case 0:
        return _kite->updateUserInfo({{"thread", thread}, {"round", round}});
      case 1:
        return _kite->addSessionData("round", round);
      case 2:
        return _kite->trackCustomEvent("Orders", {{"round", round}});
      case 3:
        return _kite->trackLog("log", Severity::warning, {{"round", round}});
      case 4:
        return _kite->monetizationFieldsDidChange({{"plan", round}});
      case 5:
        return _kite->isFreeUserDidChange(round % 2 == 0);
      case 6:
        return _kite->setProfilingTrackingConsent(round % 2 == 0);
      case 7:
        return _kite->addProfilingOnlyEvents({"rare " + std::to_string(round)});
      case 8:
        return _kite->trackExperimentSegmentsReceived({{"experiment", round}});
      case 9:
        return _parts.application().willEnterForeground();
      case 10:
        return _parts.application().didEnterBackground();
      default:
        static_cast<void>(_kite->userInfoKiteValue());
        static_cast<void>(_kite->sessionDataKiteValue());
        static_cast<void>(_kite->currentSessionId());
    }
  }

  void end(const std::string& how) {
    start();
    track("end", 0, 20);
    _parts.settle();
    reply("");
    std::string line;
    std::getline(std::cin, line);
    if (how == "destroy") _kite.reset();
    if (how == "exit") std::exit(0);
    if (how == "quick_exit") std::quick_exit(0);
    if (how == "abort") std::abort();
    if (how == "throw") throw std::runtime_error("nobody catches this");
  }

  void withoutThreads() {
    threadsLeft = number("first");
    start();
    track("few", 0, 20);
    threadsLeft = -1;
    track("few", 20, 20);
    _parts.settle();
    reply("");
  }

  /// What a call that ran out of memory did not do is the host's to repeat.
  void withoutMemory() {
    start();
    _parts.settle();
    isEveryThreadMeant = _options.has("anywhere");
    isMeant = true;
    allocationsLeft = number("at");
    long refused = 0;
    for (long serial = 0; serial < 20; ++serial) {
      try {
        track("memory", serial, 1);
        _kite->addSessionData("serial", serial);
        if (serial % 5 == 0) _kite->updateUserInfo({{"serial", serial}});
      } catch (const std::bad_alloc&) {
        ++refused;
      }
    }
    const bool isOver = allocationsLeft < 0;
    allocationsLeft = -1;
    track("after", 0, 5);
    _parts.settle();
    reply(",\"refused\":" + std::to_string(refused) + ",\"struck\":" + (isOver ? "true" : "false"));
  }

  void start() {
    _kite = std::make_unique<KiteManagerImpl>();
    _kite->start(_parts.dependencies(_parts.platform()));
  }

  const Options _options;
  HostParts _parts{_options, ApplicationState::background};
  std::unique_ptr<KiteManagerImpl> _kite;
};

}  // namespace
}  // namespace kite::faults

int main(int count, char** arguments) {
  static kite::faults::ThreadsHost host{kite::faults::Options(count, arguments)};
  host.run();
  return 0;
}
