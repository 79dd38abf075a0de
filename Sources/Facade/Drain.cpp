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
class Drain : public std::enable_shared_from_this<Drain> {
 public:
  using Callback = std::function<void(const DrainReport&)>;

  Drain(std::shared_ptr<KiteState> state, DrainLimits limits, Callback whenDone)
      : _state(std::move(state)),
        _limits(limits),
        _whenDone(std::move(whenDone)),
        _deliveredBefore(_state->ledger->deliveredInThisRun()) {}
  Drain(const Drain&) = delete;
  Drain& operator=(const Drain&) = delete;
  /// A queue may end with the step that it was to make.
  ~Drain() { finish(DrainEnd::deadline); }

  void begin() {
    startTimer(_limits.persistWithin, [](Drain& self) { self.endPersisting(); });
    persist([](Drain& self) { self.endPersisting(); });
  }

  /// Once: later ends are too late, and return when the report was made.
  void finish(DrainEnd end) {
    const std::scoped_lock guard(_finishing);
    if (_isFinished.exchange(true)) return;
    cancelTimers();
    _whenDone(report(end));
  }

 private:
  template <class Body>
  void persist(Body body) {
    _state->eventStorage->persist([self = shared_from_this(), body] { body(*self); });
  }

  template <class Body>
  void startTimer(Tempra::Duration delay, Body body) {
    const auto scheduler = _state->dependencies->scheduler;
    auto cancel = scheduler->schedule(delay, delay, weakly(weak_from_this(), body));
    _cancels.with([&](auto& cancels) { cancels.push_back(std::move(cancel)); });
    if (_isFinished) cancelTimers();  // it may have fired already
  }
  void cancelTimers() {
    for (const auto& cancel : _cancels.take()) cancel();
  }

  // A disk that takes no events does not keep them from being delivered.
  void endPersisting() {
    if (_isPersistingOver.exchange(true)) return;
    cancelTimers();
    if (_limits.deliverWithin <= Tempra::Duration::zero()) return finish(endOfPersisting());
    startTimer(_limits.deliverWithin, [](Drain& self) { self.finish(DrainEnd::deadline); });
    uploadNext();
  }

  DrainEnd endOfPersisting() const {
    const auto status = _state->eventStorage->status();
    return status.onDisk == status.ledger.pending ? DrainEnd::persisted : DrainEnd::notPersisted;
  }

  void uploadNext() {
    if (_isFinished) return;
    _state->synchronizationManager->uploadBatch(
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

  DrainReport report(DrainEnd end) const {
    const auto status = _state->eventStorage->status();
    return {.delivered = _state->ledger->deliveredInThisRun() - _deliveredBefore,
            .persisted = status.onDisk,
            .inMemory = status.ledger.pending - status.onDisk,
            .end = end};
  }

  const std::shared_ptr<KiteState> _state;
  const DrainLimits _limits;
  const Callback _whenDone;
  const std::uint64_t _deliveredBefore;
  Guarded<std::vector<Tempra::Cancel>> _cancels;
  std::atomic<bool> _isPersistingOver = false;
  std::mutex _finishing;
  std::atomic<bool> _isFinished = false;
};

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
  const auto report = std::make_shared<Guarded<DrainReport>>();
  std::shared_ptr<Drain> running;
  const auto begin = [&](std::function<void()> end) {
    running = beginDrain(state, limits, [report, end = std::move(end)](const DrainReport& made) {
      report->set(made);
      end();
    });
  };
  const auto bundle = state->dependencies.unwrapped();
  if (const auto mainThread = bundle ? bundle->backgroundChecker.mainThread : nullptr) {
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
