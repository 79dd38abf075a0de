#include <Kite/SessionListener.h>

#include <Kite/Platform/System.h>

#include "Base/Guarded.h"
#include "Sessions/SessionEndHandler.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <utility>
#include <vector>

namespace kite {
namespace {

/// The handlers of one signal, shared by all copies of a listener: step by step, those of one step
/// as they were registered. Any thread.
class HandlerTable {
 public:
  CancelToken add(SessionListener::Handler handler) {
    const CancelToken token{System::live().randomUUID()};
    const auto step = stepOf(handler);
    _entries.with([&](Entries& entries) {
      const auto next = std::ranges::upper_bound(entries, step, {}, &Entry::step);
      entries.insert(next, {token, step, std::move(handler)});
    });
    return token;
  }

  /// True when that was the last handler.
  bool remove(const CancelToken& token) {
    // A handler may own what its destruction calls back from, so not under the lock.
    std::optional<Entry> removed;
    return _entries.with([&](Entries& entries) {
      const auto found = std::ranges::find(entries, token, &Entry::token);
      if (found == entries.end()) return false;
      removed = std::move(*found);
      entries.erase(found);
      return entries.empty();
    });
  }

  void callAll() const {
    for (const auto& entry : _entries.copy()) entry.handler();
  }

 private:
  struct Entry {
    CancelToken token;
    SessionEndStep step;
    SessionListener::Handler handler;
  };
  using Entries = std::vector<Entry>;
  Guarded<Entries> _entries;
};

/// A handler table fed by one notification, which is observed from the first registration until the
/// table runs empty.
class NotifiedTable {
 public:
  NotifiedTable(std::shared_ptr<NotificationCenter> center, std::string_view notification)
      : _center(std::move(center)), _notification(notification) {}

  CancelToken add(SessionListener::Handler handler) {
    const auto token = _handlers->add(std::move(handler));
    try {
      attachOnce();
    } catch (...) {
      _handlers->remove(token);
      throw;
    }
    return token;
  }

  void remove(const CancelToken& token) {
    if (!_handlers->remove(token)) return;
    if (const auto observation = _observation.copy()) _center->removeObserver(observation);
  }

 private:
  // Once per table: the observation is kept after its removal, so that a table which once ran empty
  // is not observed for again.
  void attachOnce() {
    if (_isAttached.exchange(true)) return;
    try {
      _observation.set(_center->addObserver(
          _notification, [handlers = std::weak_ptr<const HandlerTable>(_handlers)] {
            if (const auto table = handlers.lock()) table->callAll();
          }));
    } catch (...) {
      _isAttached = false;
      throw;
    }
  }

  const std::shared_ptr<NotificationCenter> _center;
  const std::string_view _notification;
  const std::shared_ptr<HandlerTable> _handlers = std::make_shared<HandlerTable>();
  std::atomic<bool> _isAttached = false;
  Guarded<std::shared_ptr<NotificationCenter::Observation>> _observation;
};

template <class Table>
SessionListener listenerOn(const std::shared_ptr<Table>& starts, const std::shared_ptr<Table>& ends,
                           bool disableAutomaticSession) {
  using Handler = SessionListener::Handler;
  return {.onSessionStart = [starts](Handler handler) { return starts->add(std::move(handler)); },
          .onSessionEnd = [ends](Handler handler) { return ends->add(std::move(handler)); },
          .detachSessionStart = [starts](const CancelToken& token) { starts->remove(token); },
          .detachSessionEnd = [ends](const CancelToken& token) { ends->remove(token); },
          .disableAutomaticSession = disableAutomaticSession};
}

}  // namespace

SessionListener SessionListener::notificationCenter(std::shared_ptr<NotificationCenter> center) {
  return listenerOn(
      std::make_shared<NotifiedTable>(center, UIApplicationWillEnterForegroundNotification),
      std::make_shared<NotifiedTable>(center, UIApplicationDidEnterBackgroundNotification), false);
}

ManualSessionListener SessionListener::manual() {
  const auto starts = std::make_shared<HandlerTable>();
  const auto ends = std::make_shared<HandlerTable>();
  return {.witness = listenerOn(starts, ends, true),
          .triggerSessionStart = [starts] { starts->callAll(); },
          .triggerSessionEnd = [ends] { ends->callAll(); }};
}

}  // namespace kite
