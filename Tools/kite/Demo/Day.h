#pragma once

#include "Demo/Stage.h"

#include <cstddef>

namespace kite::tool {

/// A day in the life of an application.
class Day {
 public:
  /// The host tracks `events` events, beside those that the library makes by itself.
  Day(Stage& stage, std::size_t events) : _stage(stage), _events(events) {}

  /// Returns when the application is closed and its queue empty, or will not get so.
  void play();

 private:
  void firstLaunch();
  void pocketAndBack();
  void update();
  void reinstall();
  void crashAndRelaunch();
  void changeOfMind();
  void sessionsByHand();
  void goodNight();

  void updatedUserInfo(const std::string& op, JSONValue::Object members);
  void triggerSession(const std::string& op, const std::string& detail);
  void enterForeground();
  void enterBackground();
  void trackSome(std::size_t count);
  void trackUserAction(const std::string& name, JSONValue::Object content);
  void trackOrder(JSONValue::Object content);
  void trackFault(JSONValue::Object content);

  Stage& _stage;
  std::size_t _events;
  std::size_t _step = 0;
};

}  // namespace kite::tool
