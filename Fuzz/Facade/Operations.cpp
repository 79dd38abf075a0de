#include "Facade/Operations.h"

#include <array>
#include <iterator>

namespace kite::fuzz {
namespace {

// Arguments are made one by one: in a call each compiler has its own order.
void trackUserAction(ModelledHost& host, RandomBytes& random) {
  const auto name = random.text();
  host.kite().trackUserAction(name, host.tracked(random.data(), true));
}
// In the background such a row is not recorded.
void trackCustomEvent(ModelledHost& host, RandomBytes& random) {
  const auto table = "Table " + random.text();
  host.kite().trackCustomEvent(table, host.tracked(random.data(), !host.isInBackground()));
}
void trackLog(ModelledHost& host, RandomBytes& random) {
  const auto name = random.text();
  host.kite().trackLog(name, Severity::warning, host.tracked(random.data(), true));
}
void trackDebugEvent(ModelledHost& host, RandomBytes& random) {
  host.kite().trackDebugEvent({.severity = Severity::error,
                               .message = random.text(),
                               .category = random.text(),
                               .info = host.tracked(random.data(), true)});
}
void trackExperimentSegments(ModelledHost& host, RandomBytes& random) {
  const auto name = random.text();
  host.kite().trackExperimentSegmentsReceived({{name, random.byte()}});
}
// Without any consent an action needs a name that is technical.
void trackWithoutConsent(ModelledHost& host, RandomBytes& random) {
  auto& kite = host.kite();
  kite.setAnalyticsTrackingConsent(false);
  kite.setProfilingTrackingConsent(false);
  kite.addTechnicalEvents({"technical"});
  const bool isTechnical = random.flag();
  kite.trackUserAction(isTechnical ? "technical" : "Some name",
                       host.tracked(random.data(), isTechnical));
  kite.setAnalyticsTrackingConsent(true);
}

void addUserInfo(ModelledHost& host, RandomBytes& random) {
  const auto key = random.text();
  host.kite().addUserInfo(key, random.value());
}
void updateUserInfo(ModelledHost& host, RandomBytes& random) {
  host.kite().updateUserInfo(random.data());
}
void addSessionData(ModelledHost& host, RandomBytes& random) {
  const auto key = random.text();
  host.kite().addSessionData(key, random.value());
}
void updateSessionData(ModelledHost& host, RandomBytes& random) {
  host.kite().updateSessionData(random.data());
}
void changeMonetization(ModelledHost& host, RandomBytes& random) {
  host.kite().monetizationFieldsDidChange(random.data());
  host.kite().isFreeUserDidChange(random.flag());
  host.kite().isBaselineUserDidChange(random.flag());
}
void read(ModelledHost& host, RandomBytes&) {
  auto& kite = host.kite();
  static_cast<void>(kite.sessionDataKiteValue().values());
  static_cast<void>(kite.userInfoKiteValue().values());
  static_cast<void>(kite.firstInstallTimestamp());
  static_cast<void>(kite.currentSessionId());
  static_cast<void>(kite.keychainId() + kite.userDefaultsId());
}

void enterBackground(ModelledHost& host, RandomBytes&) { host.enterBackground(); }
void enterForeground(ModelledHost& host, RandomBytes&) { host.enterForeground(); }
void passSeconds(ModelledHost& host, RandomBytes& random) { host.passSeconds(random.below(16)); }
void restart(ModelledHost& host, RandomBytes&) { host.restart(); }

void changeAnswers(ModelledHost& host, RandomBytes& random) {
  const auto body = random.text();
  const auto elsewhere = *URL::parse("https://elsewhere.test/v4/events");
  const std::array scripts{
      test::answers(200, body),
      test::answers(200, R"({"delta":1.5,"last_event_timestamp":7})"),
      test::answers(400 + random.byte() % 200, body),
      test::answers(422, R"({"code":508,"message":")" + std::string(body.size(), 'x') + "\"}"),
      test::answersFrom(elsewhere, 200, body),
      test::answersFrom(std::nullopt, 200, body),
      test::answersWithoutStatus(body),
      test::answersWithoutBody(204),
      test::fails(body),
      test::inTurn({test::fails(), test::answers(503), test::answers(200)})};
  host.answerFromNowOn(scripts[random.below(scripts.size())]);
}

}  // namespace

void operate(ModelledHost& host, RandomBytes& random) {
  constexpr std::array operations{trackUserAction,
                                  trackCustomEvent,
                                  trackLog,
                                  trackDebugEvent,
                                  trackExperimentSegments,
                                  addUserInfo,
                                  updateUserInfo,
                                  addSessionData,
                                  updateSessionData,
                                  changeMonetization,
                                  read,
                                  trackWithoutConsent,
                                  enterBackground,
                                  enterForeground,
                                  passSeconds,
                                  restart,
                                  changeAnswers};
  operations[random.below(operations.size())](host, random);
}

}  // namespace kite::fuzz
