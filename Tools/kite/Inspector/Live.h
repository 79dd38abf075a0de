#pragma once

#include "Collector/Server/HTTPServer.h"
#include "Inspector/API.h"

#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kite::tool {

/// What the intake leaves for the readers. It never waits for them: what does not fit is left out.
class Mailbox {
 public:
  static constexpr std::size_t mostRepeated = 10'000;

  void add(std::vector<RepeatedEvent> repeated);
  std::vector<RepeatedEvent> take();

 private:
  std::mutex _mutex;
  std::vector<RepeatedEvent> _repeated;  // guarded by _mutex
};

/// Rows of one slice, as the text that a stream sends.
struct RowsText {
  SeqRange slice;
  Seq last = 0;  ///< the newest of them; 0 when there are none
  std::string text = {};
};

/// What changed since listeners were last told.
struct News {
  Seq lastEvent;
  Seq lastRequest;
  std::vector<RepeatedEvent> repeated = {};
  std::string faults = {};  ///< JSON
  std::string counts = {};  ///< JSON, not older than a few times the pause
  bool isCleared = false;
  bool isAliveTime = false;  ///< to say that the stream lives
  /// Of all events, made by the first listener that needs it for those that need the same.
  std::optional<RowsText> everyEvent = {};
};

/// One client that waits for what comes. Held by its exchange.
class Listener {
 public:
  virtual ~Listener() = default;
  /// Reads at most one slice; true when more is there to be read at once.
  virtual bool advance(EventReader& reader, News& news) = 0;
};

/// Tells the listeners what the intake stored, in batches.
class Live {
 public:
  static constexpr std::size_t mostListeners = 32;
  static constexpr std::chrono::milliseconds pause{10};  ///< at least, between two batches
  using Clock = std::chrono::steady_clock;

  /// How long the next batch still waits, `sinceLast` after one was sent.
  static std::chrono::milliseconds restOfPause(Clock::duration sinceLast);

  Live(HTTPServer& server, EventReader& reader, const Inspected& inspected);

  /// From any thread.
  void changed(std::vector<RepeatedEvent> repeated);

  /// Makes the exchange hold the listener, and tells it of what is there. Throws an `APIError` when
  /// there are too many.
  void add(Exchange& exchange, std::shared_ptr<Listener> listener);
  void cleared();
  /// The listeners look again: at once when they have not looked for a while.
  void tellSoon();
  std::unique_ptr<ServerTimer> timer(std::function<void()> body) {
    return _server.timer(std::move(body));
  }

 private:
  void tell();
  News news();

  HTTPServer& _server;
  EventReader& _reader;
  const Inspected& _inspected;
  Mailbox _mailbox;
  std::vector<std::weak_ptr<Listener>> _listeners;
  std::unique_ptr<ServerTimer> _next;
  bool _isTellingSoon = false;
  bool _isCleared = false;
  std::string _counts;
  Clock::time_point _toldAt;
  Clock::time_point _countedAt;
  Clock::time_point _aliveAt;
};

}  // namespace kite::tool
