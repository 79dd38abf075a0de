#pragma once

#include <Kite/Kite.h>

#include "Support/TestWorld.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kite::fuzz {

/// A facade in a world of fakes, and beside it what its queue must be.
///
/// The model knows the events that the host tracks, by a serial number in their data; what the
/// library tracks by itself stands between them.
class ModelledHost {
 public:
  ModelledHost();

  KiteManagerImpl& kite() { return *_kite; }
  test::TestWorld& world() { return _world; }
  bool isInBackground() const { return _isInBackground; }

  /// The data of the next event, with its serial number; the model takes it as tracked if
  /// `isRecorded`.
  KiteData tracked(KiteData data, bool isRecorded);

  void enterBackground();
  void enterForeground();
  void passSeconds(std::size_t count);
  /// The process is killed and starts again.
  void restart();
  void answerFromNowOn(test::Script script) { _script = std::move(script); }

  /// Whether the store holds what it must.
  void check() const;
  void checkThatAllArrives();

 private:
  using Serials = std::deque<std::int64_t>;

  void start();
  void passSecond();
  test::Answer answer(const URLRequest& request);
  bool isTaken(const test::Answer& answer, const URL& url) const;
  void save() { _saved = _queue; }

  test::TestWorld _world;
  std::unique_ptr<KiteManagerImpl> _kite;
  test::Script _script = test::answers(200);
  bool _isInBackground = false;
  std::size_t _seconds = 0;  // since the start
  std::int64_t _nextSerial = 0;
  Serials _queue;  // oldest first
  Serials _saved;  // what of it a kill leaves
};

}  // namespace kite::fuzz
