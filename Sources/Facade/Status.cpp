#include <Kite/Status.h>

#include "Facade/KiteState.h"
#include "Upload/UploadLog.h"

#include <utility>

namespace kite {
namespace {

std::optional<double> ageOfOldest(const KiteState& state) {
  const auto oldest = state.eventStorage->pendingEvents().first(1);
  if (!oldest || oldest->empty() || oldest->front()->isLost()) return std::nullopt;
  return state.system.now().secondsSince1970 - oldest->front()->event().timestamp;
}

}  // namespace

Status status(KiteManagerImpl& kite) {
  const auto& state = *KiteState::of(kite);
  if (!state.home.isOriginalProcess()) return {};
  if (!state.enabled) return {.ledger = state.ledger->counts()};
  auto oldestAge = ageOfOldest(state);  // loads the events of the last run
  const auto queue = state.eventStorage->status();
  return {.ledger = queue.ledger,
          .inMemory = queue.ledger.pending - queue.onDisk,
          .onDisk = queue.onDisk,
          .oldestAge = oldestAge,
          .lastUpload = state.synchronizationManager->uploads().last()};
}

void onUpload(KiteManagerImpl& kite, std::function<void(const UploadReport&)> callback) {
  const auto& state = KiteState::of(kite);
  if (state->home.isOriginalProcess())
    state->synchronizationManager->uploads().observe(std::move(callback));
}

}  // namespace kite
