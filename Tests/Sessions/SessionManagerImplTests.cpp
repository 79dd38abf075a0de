#include "Sessions/SessionManagerImpl.h"

#include "Profile/TypedStorage.h"
#include "Support/CatchFatalErrors.h"
#include "Support/FakeEventManager.h"
#include "Support/FakeNotificationCenter.h"
#include "Support/FakeSystem.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/ParsedJSON.h"
#include "Support/VirtualTime.h"
#include "Support/WatchedScheduler.h"

#include <gmock/gmock.h>

#include <atomic>
#include <limits>
#include <thread>

namespace kite::test {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr auto sessionKey = "Kite-Last-Session";
constexpr auto foregroundKey = "Kite-Last-Foreground-Session";
constexpr auto counterKey = "Kite-Last-Session-Counter";

/// Session identifiers are `sessionId(1)`, `sessionId(2)`, …; the system's are `FakeSystem::uuid`.
UUID sessionId(std::uint8_t number) {
  UUID id;
  id.bytes[0] = 0xAA;
  id.bytes[15] = number;
  return id;
}

class SessionManagerImplTests : public testing::Test {
 protected:
  FakeSystem system{Date{5000.5}};
  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>(Date{1000});
  std::shared_ptr<Tempra::Scheduler> scheduler = time;
  std::shared_ptr<InMemoryKVStorage> keyValues = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<FakeEventManager> events = std::make_shared<FakeEventManager>();
  std::shared_ptr<FakeNotificationCenter> center = std::make_shared<FakeNotificationCenter>();
  SessionListener listener = SessionListener::notificationCenter(center);
  bool isInBackground = false;
  std::atomic<std::uint8_t> drawnIds = 0;
  std::shared_ptr<SessionManagerImpl> manager =
      std::make_shared<SessionManagerImpl>(system.system());

  SessionManagerDependencies dependencies() {
    return {.backgroundChecker = {[this] { return isInBackground; }},
            .eventManager = events,
            .isProduction = false,
            .kvStorage = keyValues,
            .scheduler = scheduler,
            .timeProvider = time->provider(),
            .uuidProvider = [this] { return sessionId(++drawnIds); },
            .sessionListener = listener};
  }
  void start() { manager->start(dependencies()); }
  void startInBackground() {
    isInBackground = true;
    start();
  }
  /// What a process that died left behind.
  void storeSession(const Session& session) {
    save(*keyValues, Larder::Key<Session>{sessionKey}, session);
  }
  std::optional<Session> stored(std::string_view key) {
    const auto session = load(*keyValues, Larder::Key<Session>{key});
    return session ? std::optional(*session) : std::nullopt;
  }
  std::optional<double> counter() { return keyValues->readNumber(counterKey); }
  std::vector<SessionStartPayload> starts() { return events->all<SessionStartPayload>(); }
  std::vector<SessionEndPayload> ends() { return events->all<SessionEndPayload>(); }

  static Session anOldSession() {
    return {.id = sessionId(200),
            .startDate = Date{900},
            .sessionData = {{"level", 3}},
            .isCrashed = false,
            .endDate = std::nullopt,
            .duration = 0};
  }
};

TEST_F(SessionManagerImplTests, aStartWithAnotherStoreForgetsTheSessionOfTheFirst) {
  start();
  const auto first = manager->currentSession()->id;
  const auto before = std::exchange(keyValues, std::make_shared<InMemoryKVStorage>());
  storeSession(anOldSession());
  while (keyValues->revision() < before->revision()) keyValues->put("another", "1");
  ASSERT_EQ(keyValues->revision(), before->revision()) << "or the stores could be told apart by it";
  isInBackground = true;
  start();
  ASSERT_THAT(ends(), SizeIs(1));
  EXPECT_EQ(ends().front().sessionStartId, anOldSession().id);
  const auto left = load(*before, Larder::Key<Session>{sessionKey});
  ASSERT_TRUE(left) << "it stays in its store";
  EXPECT_EQ(left->id, first);
}

TEST_F(SessionManagerImplTests, theFirstStartInTheForegroundOpensASession) {
  start();
  EXPECT_THAT(ends(), IsEmpty());
  EXPECT_THAT(starts(),
              ElementsAre(SessionStartPayload{.id = sessionId(1), .sessionStartDate = 1000}));
  EXPECT_EQ(stored(sessionKey), std::optional(Session{.id = sessionId(1),
                                                      .startDate = Date{1000},
                                                      .sessionData = {},
                                                      .endDate = std::nullopt}));
  EXPECT_EQ(stored(foregroundKey), stored(sessionKey));
  EXPECT_EQ(counter(), std::optional(0.0));
}

TEST_F(SessionManagerImplTests, theStoredSessionIsJSONWithADateSince2001) {
  start();
  EXPECT_EQ(parsed(keyValues->text(sessionKey)),
            parsed(R"({"id": "AA000000-0000-0000-0000-000000000001",
                       "start_date": -978306200.0, "session_data": {}, "is_crashed": false,
                       "duration": 0.0})"));
}

TEST_F(SessionManagerImplTests, theCounterIsAlreadyZeroWhenTheStartIsSent) {
  std::optional<double> counterThen;
  keyValues->writeNumber(counterKey, 55);
  events->onTrack = [&] { counterThen = counter(); };
  start();
  EXPECT_EQ(counterThen, std::optional(0.0));
}

TEST_F(SessionManagerImplTests, theCounterIsTheSessionsAgeAtTheLastFullSecond) {
  start();
  time->advance(Tempra::Duration(0.999));
  EXPECT_EQ(counter(), std::optional(0.0));
  time->advance(Tempra::Duration(0.001));
  EXPECT_EQ(counter(), std::optional(1.0));
  time->advance(seconds(36));
  EXPECT_EQ(counter(), std::optional(37.0));
}

TEST_F(SessionManagerImplTests, aHeartbeatInAnOpenSessionSendsNothing) {
  start();
  events->forget();
  time->advance(seconds(5));
  EXPECT_THAT(events->tracked(), IsEmpty());
}

TEST_F(SessionManagerImplTests, aSessionThatTheProcessDidNotSurviveIsReportedAsCrashed) {
  storeSession(anOldSession());
  keyValues->writeNumber(counterKey, 37.0);
  start();
  EXPECT_THAT(ends(), ElementsAre(SessionEndPayload{.sessionStartId = sessionId(200),
                                                    .crashed = true,
                                                    .duration = 37.0,
                                                    .sessionData = {{"level", 3}},
                                                    .id = FakeSystem::uuid(1),
                                                    .sessionEndTimestamp = 5000.5}));
  EXPECT_THAT(starts(), SizeIs(1));
  EXPECT_TRUE(std::holds_alternative<SessionEndPayload>(events->tracked().front()));
}

TEST_F(SessionManagerImplTests, aCrashedSessionIsReportedFromTheBackgroundToo) {
  storeSession(anOldSession());
  keyValues->writeNumber(counterKey, 37.0);
  startInBackground();
  EXPECT_THAT(ends(), SizeIs(1));
  EXPECT_FALSE(keyValues->contains(sessionKey));
  EXPECT_FALSE(keyValues->contains(counterKey));
}

TEST_F(SessionManagerImplTests, aCrashedSessionWithoutACounterHasAnUnknownDuration) {
  storeSession(anOldSession());
  start();
  ASSERT_THAT(ends(), SizeIs(1));
  EXPECT_TRUE(ends().front().crashed);
  EXPECT_EQ(ends().front().duration, -1.0);
}

TEST_F(SessionManagerImplTests, aStoredSessionWithAnEndDateWasEndedCleanly) {
  auto session = anOldSession();
  session.endDate = Date{960.5};
  storeSession(session);
  keyValues->writeNumber(counterKey, 37.0);
  start();
  ASSERT_THAT(ends(), SizeIs(1));
  EXPECT_FALSE(ends().front().crashed);
  EXPECT_EQ(ends().front().duration, 60.5);
}

TEST_F(SessionManagerImplTests, aStoredSessionThatWasEndedCleanlyIsRemovedWithItsCounter) {
  auto session = anOldSession();
  session.endDate = Date{960.5};
  storeSession(session);
  keyValues->writeNumber(counterKey, 37.0);
  startInBackground();
  EXPECT_FALSE(keyValues->contains(sessionKey));
  EXPECT_FALSE(keyValues->contains(counterKey));
}

TEST_F(SessionManagerImplTests, aStartReportsThenBeatsThenListens) {
  std::vector<std::string> steps;
  storeSession(anOldSession());
  events->onTrack = [&] { steps.emplace_back("event"); };
  scheduler = std::make_shared<WatchedScheduler>(time, [&] { steps.emplace_back("heartbeat"); });
  listener.onSessionStart = [&](auto) {
    steps.emplace_back("listen for starts");
    return CancelToken{};
  };
  listener.onSessionEnd = [&](auto) {
    steps.emplace_back("listen for ends");
    return CancelToken{};
  };
  start();
  EXPECT_THAT(steps,
              ElementsAre("event", "event", "heartbeat", "listen for starts", "listen for ends"));
}

TEST_F(SessionManagerImplTests, aStoredRecordThatDoesNotDecodeCountsAsNone) {
  keyValues->put(sessionKey, R"({"id": "x"})");
  start();
  EXPECT_THAT(ends(), IsEmpty());
  EXPECT_EQ(stored(sessionKey)->id, sessionId(1));
}

TEST_F(SessionManagerImplTests, anEndSignalPassesOverARecordThatDoesNotDecode) {
  start();
  events->forget();
  keyValues->put(sessionKey, R"({"id": "x"})");
  center->enterBackground();
  EXPECT_THAT(events->tracked(), IsEmpty());
  EXPECT_EQ(time->armed(), 0U);
  EXPECT_EQ(keyValues->text(sessionKey), R"({"id": "x"})");
}

TEST_F(SessionManagerImplTests, aStartSignalPassesOverARecordThatDoesNotDecode) {
  start();
  events->forget();
  keyValues->put(sessionKey, R"({"id": "x"})");
  center->enterForeground();
  EXPECT_THAT(ends(), IsEmpty());
  EXPECT_THAT(starts(), SizeIs(1));
  EXPECT_EQ(stored(sessionKey)->id, sessionId(2));
}

TEST_F(SessionManagerImplTests, aReadMakesASessionInPlaceOfARecordThatDoesNotDecode) {
  start();
  events->forget();
  keyValues->put(sessionKey, R"({"id": "x"})");
  EXPECT_EQ(manager->currentSession()->id, sessionId(2));
  EXPECT_EQ(starts().at(0).id, sessionId(2));
  EXPECT_EQ(keyValues->text(sessionKey), R"({"id": "x"})");
}

TEST_F(SessionManagerImplTests, aForegroundRecordThatDoesNotDecodeCountsAsNone) {
  start();
  keyValues->put(foregroundKey, R"({"id": "x"})");
  EXPECT_EQ(manager->lastForegroundSession()->id, sessionId(1));
}

TEST_F(SessionManagerImplTests, theHeartbeatStopsBeforeTheEndIsSent) {
  start();
  std::optional<std::size_t> armedThen;
  events->onTrack = [&] { armedThen = time->armed(); };
  center->enterBackground();
  EXPECT_EQ(armedThen, std::optional<std::size_t>(0));
}

TEST_F(SessionManagerImplTests, everyEndAndTheReleaseStopTheHeartbeatAnew) {
  int cancels = 0;
  scheduler = std::make_shared<WatchedScheduler>(
      time, [] {}, [&] { ++cancels; });
  start();
  center->enterBackground();
  center->enterBackground();
  EXPECT_EQ(cancels, 2);
  manager.reset();
  EXPECT_EQ(cancels, 3);
}

TEST_F(SessionManagerImplTests, theSessionIsStillStoredWhileItsEndIsSent) {
  start();
  bool wasThere = false;
  events->onTrack = [&] {
    wasThere = keyValues->contains(sessionKey) && keyValues->contains(counterKey);
  };
  center->enterBackground();
  EXPECT_TRUE(wasThere);
  EXPECT_FALSE(keyValues->contains(sessionKey));
  EXPECT_FALSE(keyValues->contains(counterKey));
}

TEST_F(SessionManagerImplTests, goingToTheBackgroundEndsTheSession) {
  start();
  manager->addSessionData(JSONValue(3), "level");
  time->advance(Tempra::Duration(12.5));
  center->enterBackground();
  EXPECT_THAT(ends(), ElementsAre(SessionEndPayload{.sessionStartId = sessionId(1),
                                                    .crashed = false,
                                                    .duration = 12.5,
                                                    .sessionData = {{"level", 3}},
                                                    .id = FakeSystem::uuid(1),
                                                    .sessionEndTimestamp = 5000.5}));
}

TEST_F(SessionManagerImplTests, aDurationFollowsTheInjectedClockAndAnEndTheWallClock) {
  start();
  system.setNow(Date{9'999'999});
  time->advance(seconds(3));
  center->enterBackground();
  EXPECT_EQ(ends().at(0).duration, 3.0);
  EXPECT_EQ(ends().at(0).sessionEndTimestamp, 9'999'999);
}

TEST_F(SessionManagerImplTests, theIdOfAnEndIsTheSystemsAndNotTheProviders) {
  start();
  center->enterBackground();
  EXPECT_EQ(drawnIds, 1);
  EXPECT_EQ(ends().at(0).id, FakeSystem::uuid(1));
}

TEST_F(SessionManagerImplTests, backgroundAndForegroundCloseAndOpenASession) {
  start();
  const auto first = stored(sessionKey);
  time->advance(seconds(10));
  isInBackground = true;
  center->enterBackground();
  EXPECT_FALSE(keyValues->contains(sessionKey));
  EXPECT_FALSE(keyValues->contains(counterKey));
  EXPECT_EQ(stored(foregroundKey), first);
  isInBackground = false;
  center->enterForeground();
  EXPECT_EQ(starts().back(), (SessionStartPayload{.id = sessionId(2), .sessionStartDate = 1010}));
  EXPECT_EQ(stored(foregroundKey)->id, sessionId(2));
  EXPECT_EQ(counter(), std::optional(0.0));
}

TEST_F(SessionManagerImplTests, theLastForegroundSessionOutlivesItsEnd) {
  start();
  isInBackground = true;
  center->enterBackground();
  events->forget();
  EXPECT_EQ(manager->lastForegroundSession()->id, sessionId(1));
  EXPECT_EQ(drawnIds, 1);
}

TEST_F(SessionManagerImplTests, aStartSignalEndsAnOpenSessionFirst) {
  start();
  events->forget();
  center->enterForeground();
  ASSERT_THAT(events->tracked(), SizeIs(2));
  EXPECT_EQ(std::get<SessionEndPayload>(events->tracked()[0]).sessionStartId, sessionId(1));
  EXPECT_FALSE(std::get<SessionEndPayload>(events->tracked()[0]).crashed);
  EXPECT_EQ(std::get<SessionStartPayload>(events->tracked()[1]).id, sessionId(2));
  EXPECT_EQ(time->armed(), 1U) << "the end cancelled the first heartbeat";
}

TEST_F(SessionManagerImplTests, anEndSignalWithoutASessionSendsNothingButStopsTheHeartbeat) {
  startInBackground();
  EXPECT_EQ(time->armed(), 1U);
  center->enterBackground();
  EXPECT_THAT(events->tracked(), IsEmpty());
  EXPECT_EQ(time->armed(), 0U);
}

TEST_F(SessionManagerImplTests, aSecondEndSignalSendsNothing) {
  start();
  center->enterBackground();
  events->forget();
  center->enterBackground();
  EXPECT_THAT(events->tracked(), IsEmpty());
}

TEST_F(SessionManagerImplTests, aLaunchInTheBackgroundStoresNoSessionAndSendsNoStart) {
  startInBackground();
  EXPECT_THAT(events->tracked(), IsEmpty());
  EXPECT_FALSE(keyValues->contains(sessionKey));
  EXPECT_FALSE(keyValues->contains(foregroundKey));
  EXPECT_EQ(time->armed(), 1U);
}

TEST_F(SessionManagerImplTests, heartbeatsInTheBackgroundMakeASessionEachAndCountNothing) {
  startInBackground();
  time->advance(seconds(3));
  EXPECT_EQ(drawnIds, 3);
  EXPECT_FALSE(keyValues->contains(sessionKey));
  EXPECT_EQ(counter(), std::optional(0.0));
}

TEST_F(SessionManagerImplTests, aForegroundSignalAfterABackgroundLaunchBeginsASecondHeartbeat) {
  startInBackground();
  isInBackground = false;
  center->enterForeground();
  EXPECT_EQ(stored(sessionKey)->id, sessionId(1));
  EXPECT_EQ(time->armed(), 2U) << "the first heartbeat's cancel function is dropped";
}

TEST_F(SessionManagerImplTests, anEndCancelsTheSecondHeartbeatOnly) {
  startInBackground();
  isInBackground = false;
  center->enterForeground();
  isInBackground = true;
  center->enterBackground();
  EXPECT_EQ(time->armed(), 1U);
  time->advance(seconds(1));
  EXPECT_EQ(counter(), std::optional(0.0)) << "the forgotten heartbeat ticks on";
}

TEST_F(SessionManagerImplTests, aForgottenHeartbeatInTheForegroundReportsASessionEachSecond) {
  startInBackground();
  isInBackground = false;
  center->enterForeground();
  center->enterBackground();
  events->forget();
  time->advance(seconds(3));
  EXPECT_THAT(starts(),
              ElementsAre(SessionStartPayload{.id = sessionId(2), .sessionStartDate = 1001},
                          SessionStartPayload{.id = sessionId(3), .sessionStartDate = 1002},
                          SessionStartPayload{.id = sessionId(4), .sessionStartDate = 1003}));
  EXPECT_FALSE(keyValues->contains(sessionKey));
}

TEST_F(SessionManagerImplTests, readingWithoutASessionMakesANewOneEachTime) {
  startInBackground();
  EXPECT_EQ(manager->currentSession()->id, sessionId(1));
  EXPECT_EQ(manager->currentSession()->id, sessionId(2));
  EXPECT_FALSE(keyValues->contains(sessionKey));
  EXPECT_THAT(events->tracked(), IsEmpty());
}

TEST_F(SessionManagerImplTests, readingWithoutASessionInTheForegroundSendsAStartEachTime) {
  start();
  center->enterBackground();
  events->forget();
  EXPECT_EQ(manager->currentSession()->id, sessionId(2));
  EXPECT_EQ(manager->currentSession()->id, sessionId(3));
  ASSERT_THAT(starts(), SizeIs(2));
  EXPECT_EQ(starts()[0].id, sessionId(2));
  EXPECT_EQ(starts()[1].id, sessionId(3));
  EXPECT_EQ(counter(), std::optional(0.0));
  EXPECT_FALSE(keyValues->contains(sessionKey));
}

TEST_F(SessionManagerImplTests, readingTheSameSessionGivesTheSameObject) {
  start();
  EXPECT_EQ(manager->currentSession(), manager->currentSession());
}

TEST_F(SessionManagerImplTests, withoutAForegroundRecordTheLastForegroundSessionIsTheCurrentOne) {
  startInBackground();
  isInBackground = false;
  EXPECT_EQ(manager->lastForegroundSession()->id, sessionId(1));
  EXPECT_THAT(starts(), SizeIs(1)) << "the read of the current session reports it";
  EXPECT_FALSE(keyValues->contains(foregroundKey));
}

TEST_F(SessionManagerImplTests, aSessionWithDataIsStoredAsTheForegroundOneInTheBackgroundToo) {
  startInBackground();
  manager->addSessionData(JSONValue(1), "a");
  EXPECT_EQ(stored(sessionKey)->id, sessionId(1));
  EXPECT_EQ(stored(foregroundKey), stored(sessionKey));
}

TEST_F(SessionManagerImplTests, aSessionStoredByItsDataAloneHasAnUnknownDurationAtTheNextStart) {
  startInBackground();
  manager->addSessionData(JSONValue(1), "a");
  events->forget();
  manager = std::make_shared<SessionManagerImpl>(system.system());
  start();
  ASSERT_THAT(ends(), SizeIs(1));
  EXPECT_TRUE(ends()[0].crashed);
  EXPECT_EQ(ends()[0].duration, -1.0);
}

TEST_F(SessionManagerImplTests, addedDataReplacesTheValueUnderItsKey) {
  start();
  manager->addSessionData(JSONValue(1), "a");
  manager->addSessionData(JSONValue("x"), "a");
  EXPECT_EQ(stored(sessionKey)->sessionData, (JSONValue::Object{{"a", "x"}}));
}

TEST_F(SessionManagerImplTests, addingNoDataRemovesTheKey) {
  start();
  manager->updateSessionData({{"a", 1}, {"b", 2}});
  manager->addSessionData(std::nullopt, "a");
  EXPECT_EQ(stored(sessionKey)->sessionData, (JSONValue::Object{{"b", 2}}));
}

TEST_F(SessionManagerImplTests, addedNullIsData) {
  start();
  manager->addSessionData(JSONValue(), "a");
  EXPECT_EQ(stored(sessionKey)->sessionData, (JSONValue::Object{{"a", nullptr}}));
}

TEST_F(SessionManagerImplTests, removingDataRemovesTheKeyAlone) {
  start();
  manager->updateSessionData({{"a", 1}, {"b", 2}});
  manager->removeSessionData("a");
  manager->removeSessionData("unknown");
  EXPECT_EQ(stored(sessionKey)->sessionData, (JSONValue::Object{{"b", 2}}));
}

TEST_F(SessionManagerImplTests, anUpdateOfTheDataWinsKeyByKey) {
  start();
  manager->updateSessionData({{"a", 1}, {"b", 3}});
  manager->updateSessionData({{"a", 2}});
  EXPECT_EQ(stored(sessionKey)->sessionData, (JSONValue::Object{{"a", 2}, {"b", 3}}));
  EXPECT_EQ(stored(foregroundKey)->sessionData, (JSONValue::Object{{"a", 2}, {"b", 3}}));
}

TEST_F(SessionManagerImplTests, dataThatDoesNotEncodeIsSilentlyNotStored) {
  start();
  manager->addSessionData(JSONValue(1), "a");
  manager->addSessionData(JSONValue(std::numeric_limits<double>::infinity()), "b");
  EXPECT_EQ(stored(sessionKey)->sessionData, (JSONValue::Object{{"a", 1}}));
  EXPECT_EQ(stored(foregroundKey), stored(sessionKey));
}

TEST_F(SessionManagerImplTests, everyOperationStopsTheProcessBeforeStart) {
  constexpr auto message = "Call start before using the SessionManager";
  EXPECT_FATAL(static_cast<void>(manager->currentSession()), message);
  EXPECT_FATAL(static_cast<void>(manager->lastForegroundSession()), message);
  EXPECT_FATAL(manager->addSessionData(JSONValue(1), "a"), message);
  EXPECT_FATAL(manager->removeSessionData("a"), message);
  EXPECT_FATAL(manager->updateSessionData({}), message);
  EXPECT_FATAL(manager->trackStartSession(), message);
  EXPECT_FATAL(manager->trackEndSession(), message);
}

TEST_F(SessionManagerImplTests, useBeforeStartIsReportedFromItsFixedPlace) {
  const auto raised = fatalErrorOf([&] { static_cast<void>(manager->currentSession()); });
  ASSERT_TRUE(raised);
  EXPECT_STREQ(raised->where.file, "Kite/SessionManagerImpl");
}

TEST_F(SessionManagerImplTests, aReleasedManagerLeavesTheListenerAndTheScheduler) {
  start();
  EXPECT_EQ(center->observers(UIApplicationWillEnterForegroundNotification), 1U);
  EXPECT_EQ(center->observers(UIApplicationDidEnterBackgroundNotification), 1U);
  manager.reset();
  EXPECT_EQ(center->observers(UIApplicationWillEnterForegroundNotification), 0U);
  EXPECT_EQ(center->observers(UIApplicationDidEnterBackgroundNotification), 0U);
  EXPECT_EQ(time->armed(), 0U);
}

TEST_F(SessionManagerImplTests, anUnstartedManagerIsReleasedInSilence) {
  manager.reset();
  EXPECT_EQ(time->armed(), 0U);
}

TEST_F(SessionManagerImplTests, aForgottenHeartbeatOutlivesTheManagerWithoutEffect) {
  startInBackground();
  center->enterForeground();
  manager.reset();
  const auto before = keyValues->writes();
  EXPECT_EQ(time->armed(), 1U);
  time->advance(seconds(3));
  EXPECT_EQ(keyValues->writes(), before);
}

TEST_F(SessionManagerImplTests, signalsDoNotKeepTheManagerAlive) {
  start();
  const std::weak_ptr<SessionManagerImpl> watched = manager;
  manager.reset();
  EXPECT_TRUE(watched.expired());
}

TEST_F(SessionManagerImplTests, aSecondStartReportsTheSessionOfTheFirstAsCrashed) {
  start();
  time->advance(seconds(4));
  start();
  ASSERT_THAT(ends(), SizeIs(1));
  EXPECT_TRUE(ends()[0].crashed);
  EXPECT_EQ(ends()[0].duration, 4.0);
}

TEST_F(SessionManagerImplTests, heartbeatsAndSignalsAndReadsMayComeFromSeveralThreads) {
  start();
  std::thread beating([&] { time->advance(seconds(100)); });
  std::thread signalling([&] {
    for (int i = 0; i < 50; ++i) {
      center->enterBackground();
      center->enterForeground();
    }
  });
  for (int i = 0; i < 100; ++i) manager->addSessionData(JSONValue(i), "i");
  beating.join();
  signalling.join();
  EXPECT_EQ(manager->currentSession()->id, stored(sessionKey)->id);
  center->enterBackground();
  EXPECT_FALSE(keyValues->contains(sessionKey));
}

class ManuallyDrivenSessions : public SessionManagerImplTests {
 protected:
  ManualSessionListener manual = SessionListener::manual();
  void SetUp() override { listener = manual.witness; }
};

TEST_F(ManuallyDrivenSessions, aStartOpensNoSessionButBeatsAllTheSame) {
  start();
  EXPECT_THAT(events->tracked(), IsEmpty());
  EXPECT_FALSE(keyValues->contains(sessionKey));
  EXPECT_EQ(time->armed(), 1U);
}

TEST_F(ManuallyDrivenSessions, readsSendNoStart) {
  start();
  EXPECT_EQ(manager->currentSession()->id, sessionId(1));
  EXPECT_EQ(manager->currentSession()->id, sessionId(2));
  EXPECT_THAT(events->tracked(), IsEmpty());
}

TEST_F(ManuallyDrivenSessions, openAndCloseOnTheTriggersInTheBackgroundToo) {
  startInBackground();
  manual.triggerSessionStart();
  EXPECT_THAT(starts(), SizeIs(1));
  EXPECT_TRUE(keyValues->contains(sessionKey));
  time->advance(seconds(2));
  manual.triggerSessionEnd();
  ASSERT_THAT(ends(), SizeIs(1));
  EXPECT_EQ(ends()[0].duration, 2.0);
  EXPECT_FALSE(keyValues->contains(sessionKey));
}

TEST_F(ManuallyDrivenSessions, aCrashedSessionIsReportedAtStart) {
  storeSession(anOldSession());
  start();
  ASSERT_THAT(ends(), SizeIs(1));
  EXPECT_THAT(starts(), IsEmpty());
}

/// A manager whose two signal operations a subclass took over.
class OverridingManager final : public SessionManagerImpl {
 public:
  using SessionManagerImpl::SessionManagerImpl;
  void trackStartSession() override {
    ++startSignals;
    SessionManagerImpl::trackStartSession();
  }
  void trackEndSession() override { ++endSignals; }

  int startSignals = 0;
  int endSignals = 0;
};

TEST_F(SessionManagerImplTests, signalsReachAnOverridingManager) {
  const auto overriding = std::make_shared<OverridingManager>(system.system());
  overriding->start(dependencies());
  center->enterBackground();
  EXPECT_EQ(overriding->endSignals, 1);
  EXPECT_THAT(ends(), IsEmpty());
  center->enterForeground();
  EXPECT_EQ(overriding->startSignals, 1);
  EXPECT_EQ(overriding->endSignals, 2) << "the still open session is ended the overriding way";
}

}  // namespace
}  // namespace kite::test
