#include <Kite/Drain.h>

#include "Base/CatchingBadAlloc.h"
#include "Base/Guarded.h"
#include "Base/Semaphore.h"
#include "Base/Weakly.h"
#include "Facade/KiteState.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kite {
namespace {

/// How much later than its timers a drain's caller goes on by itself: they may be held up.
constexpr Tempra::Duration grace = std::chrono::milliseconds(20);

/// One drain: persist, then batch after batch, then persist their removal. Every step is begun by
/// the end of the one before or by the end of its time, so no thread waits here.
///
/// It holds the facade until it is over, and then lets go: a queue may hold a step of it for
/// longer.
class Drain : public std::enable_shared_from_this<Drain> {
 public:
  using Callback = std::function<void(const DrainReport&)>;

  Drain(std::shared_ptr<KiteState> state, DrainLimits limits, Callback whenDone)
      : _limits(limits),
        _whenDone(std::move(whenDone)),
        _deliveredBefore(state->ledger->deliveredInThisRun()) {
    _state.set(std::move(state));
  }
  Drain(const Drain&) = delete;
  Drain& operator=(const Drain&) = delete;
  /// A queue may end with the step that it was to make.
  ~Drain() { finish(DrainEnd::deadline); }

  void begin() {
    startTimer(_limits.persistWithin, [](Drain& self) { self.endPersisting(DrainEnd::deadline); });
    if (const auto state = _state.copy())
      state->eventStorage->persist([self = shared_from_this()](bool isSaved) {
        self->endPersisting(isSaved ? DrainEnd::persisted : DrainEnd::notPersisted);
      });
  }

  /// Once: later ends are too late, and return when the report was made.
  void finish(DrainEnd end) {
    const std::scoped_lock guard(_finishing);
    const auto state = _state.take();
    if (!state) return;
    cancelTimers();
    _whenDone(report(*state, end));
  }

 private:
  template <class Body>
  void startTimer(Tempra::Duration delay, Body body) {
    const auto state = _state.copy();
    if (!state) return;
    const auto scheduler = state->dependencies->scheduler;
    auto cancel = scheduler->schedule(delay, delay, weakly(weak_from_this(), body));
    _cancels.with([&](auto& cancels) { cancels.push_back(std::move(cancel)); });
    if (isOver()) cancelTimers();  // it may have fired already
  }
  void cancelTimers() {
    for (const auto& cancel : _cancels.take()) cancel();
  }

  // A disk that takes no events does not keep them from being delivered.
  void endPersisting(DrainEnd end) {
    if (_isPersistingOver.exchange(true)) return;
    cancelTimers();
    if (_limits.deliverWithin <= Tempra::Duration::zero()) return finish(end);
    startTimer(_limits.deliverWithin, [](Drain& self) { self.finish(DrainEnd::deadline); });
    uploadNext();
  }

  void uploadNext() {
    const auto state = _state.copy();
    if (!state) return;
    state->synchronizationManager->uploadBatch(
        [self = shared_from_this()] { return !self->isOver(); },
        [self = shared_from_this()](UploadResult result) { self->ended(result); });
  }

  void ended(UploadResult result) {
    switch (result) {
      case UploadResult::finished:
        return uploadNext();
      case UploadResult::nothingPending:
        return finish(DrainEnd::delivered);
      case UploadResult::unreachable:
        return finish(DrainEnd::unreachable);
      case UploadResult::refused:
        return finish(DrainEnd::refused);
      case UploadResult::notReadable:
        return finish(DrainEnd::notReadable);
    }
  }

  bool isOver() const {
    return _state.with([](const auto& state) { return !state; });
  }

  DrainReport report(const KiteState& state, DrainEnd end) const {
    const auto status = state.eventStorage->status();
    return {.delivered = state.ledger->deliveredInThisRun() - _deliveredBefore,
            .persisted = status.onDisk,
            .inMemory = status.ledger.pending - status.onDisk,
            .end = end};
  }

  Guarded<std::shared_ptr<KiteState>> _state;  // null when it is over
  const DrainLimits _limits;
  const Callback _whenDone;
  const std::uint64_t _deliveredBefore;
  Guarded<std::vector<Tempra::Cancel>> _cancels;
  std::atomic<bool> _isPersistingOver = false;
  std::mutex _finishing;
};

std::shared_ptr<MainThread> mainThreadOf(const KiteState& state) {
  const auto bundle = state.dependencies.unwrapped();
  return bundle ? bundle->backgroundChecker.mainThread : nullptr;
}

/// Null when there is nothing that could be drained.
std::shared_ptr<Drain> beginDrain(const std::shared_ptr<KiteState>& state, DrainLimits limits,
                                  Drain::Callback whenDone) {
  if (!state->home.isOriginalProcess() || !state->enabled) {
    whenDone({});
    return nullptr;
  }
  auto drain = std::make_shared<Drain>(state, limits, std::move(whenDone));
  if (!catchingBadAlloc([&] { drain->begin(); })) drain->finish(DrainEnd::notPersisted);
  return drain;
}

}  // namespace

void drain(KiteManagerImpl& kite, DrainLimits limits,
           std::function<void(const DrainReport&)> whenDone) {
  beginDrain(KiteState::of(kite), limits, std::move(whenDone));
}

DrainReport drain(KiteManagerImpl& kite, DrainLimits limits) {
  const auto state = KiteState::of(kite);
  if (!state->home.isOriginalProcess()) return {};
  const auto report = std::make_shared<Guarded<DrainReport>>();
  std::shared_ptr<Drain> running;
  const auto begin = [&](std::function<void()> end) {
    running = beginDrain(state, limits, [report, end = std::move(end)](const DrainReport& made) {
      report->set(made);
      end();
    });
  };
  if (const auto mainThread = mainThreadOf(*state)) {
    mainThread->waitFor(begin, limits.persistWithin + limits.deliverWithin + grace);
    if (running) running->finish(DrainEnd::deadline);
  } else {
    const auto ended = std::make_shared<Semaphore>();
    begin([ended] { ended->release(); });
    ended->acquire();
  }
  return report->copy();
}

}  // namespace kite
