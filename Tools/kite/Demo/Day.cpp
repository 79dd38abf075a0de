#include "Demo/Day.h"

#include <fmt/format.h>

#include <array>

namespace kite::tool {
namespace {

constexpr std::array screens{"map", "route_planner", "Übersicht", "地図", "summit_log"};

/// One value of every kind, different at every step.
JSONValue::Object circumstances(std::size_t step) {
  const auto number = static_cast<std::int64_t>(step);
  return {{"screen", screens.at(step % screens.size())},
          {"points", number * 7},
          {"quality", static_cast<double>(number) / 8},
          {"is_offline_map", step % 3 == 0},
          {"layer", nullptr},
          {"waypoints", JSONValue::Array{number, static_cast<double>(number) + 0.5, "cairn"}}};
}

}  // namespace

void Day::play() {
  firstLaunch();
  pocketAndBack();
  update();
  reinstall();
  crashAndRelaunch();
  changeOfMind();
  sessionsByHand();
  goodNight();
}

void Day::firstLaunch() {
  _stage.announce("first launch; the primary endpoint is down and the other one busy");
  _stage.launch({"--endpoint", _stage.closedURL(), "--secondary", _stage.collector().url(),
                 "--app-version", "1.0", "--bundle-version", "100"});
  auto& ledger = _stage.ledger();
  ledger.expect("UserInfoUpdated");
  ledger.expect("UserInfoUpdated");  // once more, for the attribution
  ledger.expect("Install", "first");
  ledger.expect("Session", "start");
  updatedUserInfo("trackExperimentSegmentsReceived",
                  {{"segments", JSONValue::Object{{"onboarding", 2}, {"paywall", 1}}}});
  ledger.expect("ExperimentSegmentReceived");
  trackSome(_events * 3 / 10);
  _stage.settle();
}

void Day::pocketAndBack() {
  _stage.announce("into the pocket and out again");
  enterBackground();
  for (auto left = _events / 10; left > 0; --left)
    trackUserAction("background_fetch", circumstances(_step));
  _stage.call("trackCustomEvent",
              {{"in", "Orders"}, {"data", _stage.ledger().trackInVain({{"items", 1}})}});
  _stage.settle();
  enterForeground();
  trackUserAction("resumed", {});
  enterBackground();
  _stage.settle();
  _stage.quit();
}

void Day::update() {
  _stage.announce("a new version, and the user signs up");
  _stage.launch({"--endpoint", _stage.collector().url(), "--app-version", "1.1", "--bundle-version",
                 "110", "--sync-on-session-end"});
  auto& ledger = _stage.ledger();
  ledger.expect("UserInfoUpdated");
  ledger.expect("Install", "update");
  ledger.expect("Session", "start");
  updatedUserInfo("updateUserInfo",
                  {{"with", JSONValue::Object{{"nickname", "Aroha"}, {"summits", 36}}}});
  updatedUserInfo("monetizationFieldsDidChange",
                  {{"newValue", JSONValue::Object{{"plan", "yearly"}, {"price", 29.99}}}});
  updatedUserInfo("isBaselineUserDidChange", {{"newValue", true}});
  updatedUserInfo("isFreeUserDidChange", {{"newValue", false}});
  _stage.call("isFreeUserDidChange", {{"newValue", false}});  // nothing changes
  trackSome(_events * 3 / 10);
  enterBackground();
  _stage.settle();
  _stage.drain();  // what waits would go with the application
  _stage.quit();
}

void Day::reinstall() {
  _stage.announce("removed and installed again; the secrets survive");
  _stage.uninstall();
  _stage.launch(
      {"--endpoint", _stage.collector().url(), "--app-version", "1.1", "--bundle-version", "110"});
  _stage.ledger().expect("Install", "again");
  _stage.ledger().expect("Session", "start");
  _stage.settle();
}

void Day::crashAndRelaunch() {
  _stage.announce("a crash in the middle of a session, and the relaunch");
  _stage.call("wait", {{"seconds", 1.5}});
  _stage.crash();
  _stage.launch({"--endpoint", _stage.collector().url(), "--app-version", "1.1", "--bundle-version",
                 "110", "--sync-on-session-end"});
  _stage.ledger().expect("Session", "end after a crash");
  _stage.ledger().expect("Session", "start");
  _stage.settle();
}

void Day::changeOfMind() {
  _stage.announce("consent is withdrawn and given back");
  for (const auto* op : {"setAnalyticsTrackingConsent", "setProfilingTrackingConsent"})
    _stage.call(op, {{"value", false}});
  for (std::size_t left = 5; left > 0; --left)
    _stage.call("trackUserAction",
                {{"name", "private"}, {"data", _stage.ledger().trackInVain({})}});
  trackUserAction("privacy_settings_updated", {});
  for (const auto* op : {"setAnalyticsTrackingConsent", "setProfilingTrackingConsent"})
    _stage.call(op, {{"value", true}});
  trackSome(_events > _step ? _events - _step : 0);
}

void Day::sessionsByHand() {
  _stage.announce("launched again, with sessions by hand");
  enterBackground();
  _stage.settle();
  _stage.drain();
  _stage.quit();
  _stage.launch({"--endpoint", _stage.collector().url(), "--app-version", "1.1", "--bundle-version",
                 "110", "--sync-on-session-end", "--sessions", "manual"});
  triggerSession("triggerSessionStart", "start");
  trackUserAction("guided_tour", circumstances(_step));
}

void Day::goodNight() {
  _stage.announce("good night; the rest leaves in the background");
  triggerSession("triggerSessionEnd", "end");
  _stage.call("didEnterBackground");  // saved at once from here on
  _stage.settle();
  _stage.drain();
  _stage.quit();
}

void Day::updatedUserInfo(const std::string& op, JSONValue::Object members) {
  _stage.call(op, std::move(members));
  _stage.ledger().expect("UserInfoUpdated");
}

void Day::triggerSession(const std::string& op, const std::string& detail) {
  _stage.call(op);
  _stage.ledger().expect("Session", detail);
}

void Day::enterForeground() {
  _stage.call("willEnterForeground");
  _stage.ledger().expect("Session", "start");
}

void Day::enterBackground() {
  _stage.call("didEnterBackground");
  _stage.ledger().expect("Session", "end");
}

void Day::trackSome(std::size_t count) {
  for (; count > 0; --count) {
    const auto kind = _step % 10;
    if (kind == 9) {
      trackFault(circumstances(_step));
    } else if (kind >= 7) {
      trackOrder(circumstances(_step));
    } else {
      trackUserAction(fmt::format("tap_{}", _step % 4), circumstances(_step));
    }
  }
}

void Day::trackUserAction(const std::string& name, JSONValue::Object content) {
  ++_step;
  _stage.call("trackUserAction",
              {{"name", name}, {"data", _stage.ledger().track("UserAction", std::move(content))}});
}

void Day::trackOrder(JSONValue::Object content) {
  ++_step;
  _stage.call("trackCustomEvent",
              {{"in", "Orders"}, {"data", _stage.ledger().track("Orders", std::move(content))}});
}

void Day::trackFault(JSONValue::Object content) {
  ++_step;
  _stage.call("trackDebugEvent",
              {{"severity", "Warning"},
               {"message", "a tile is missing"},
               {"category", "map"},
               {"info", _stage.ledger().track("DebugEvent", std::move(content))}});
}

}  // namespace kite::tool
