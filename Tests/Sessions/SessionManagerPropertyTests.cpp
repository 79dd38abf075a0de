#include "Sessions/SessionManagerImpl.h"

#include "Profile/TypedStorage.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/SessionModel.h"
#include "Support/VirtualTime.h"

#include <gmock/gmock.h>

#include <functional>
#include <random>

namespace kite::test {
namespace {

/// Whatever happens to a manager happens to its model too.
class SessionManagerProperties : public testing::TestWithParam<bool> {
 protected:
  FakeSystem system{Date{5000}};
  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>(Date{1000});
  std::shared_ptr<InMemoryKVStorage> store = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<FakeEventManager> events = std::make_shared<FakeEventManager>();
  ManualSessionListener signals = SessionListener::manual();
  std::uint32_t sessions = 0;
  SessionModel model;
  std::shared_ptr<SessionManagerImpl> manager;
  std::mt19937_64 random{41};

  void SetUp() override {
    model.isAutomatic = GetParam();
    signals.witness.disableAutomaticSession = !model.isAutomatic;
    start();
  }
  void start() {
    manager = std::make_shared<SessionManagerImpl>(system.system());
    manager->start({.backgroundChecker = {[this] { return model.isInBackground; }},
                    .eventManager = events,
                    .isProduction = false,
                    .kvStorage = store,
                    .scheduler = time,
                    .timeProvider = time->provider(),
                    .uuidProvider = [this] { return nthSessionId(++sessions); },
                    .sessionListener = signals.witness});
    model.start();
  }

  void dieAndStart() {
    manager.reset();
    model.die();
    start();
  }
  void changeSides() { model.isInBackground = !model.isInBackground; }
  void signalStart() {
    signals.triggerSessionStart();
    model.startSignal();
  }
  void signalEnd() {
    signals.triggerSessionEnd();
    model.endSignal();
  }
  void read() { EXPECT_EQ(*manager->currentSession(), model.read()); }
  void readForeground() { EXPECT_EQ(*manager->lastForegroundSession(), model.readForeground()); }
  void setData() {
    const std::string key(1, static_cast<char>('a' + random() % 3));
    const auto value =
        random() % 2 == 0 ? std::optional(JSONValue(static_cast<int>(sessions))) : std::nullopt;
    manager->addSessionData(value, key);
    model.setData(key, value);
  }
  void passSecond() {
    time->advance(std::chrono::seconds(1));
    model.passSecond();
  }

  void step() {
    using Self = SessionManagerProperties;
    static constexpr void (Self::*steps[])() = {
        &Self::dieAndStart, &Self::changeSides,    &Self::signalStart, &Self::signalEnd,
        &Self::read,        &Self::readForeground, &Self::setData,     &Self::passSecond};
    (this->*steps[random() % std::size(steps)])();
  }
  void expectWhatTheModelSays() {
    const auto stored = [this](const auto& key) {
      const auto session = load(*store, key);
      return session ? std::optional(*session) : std::nullopt;
    };
    EXPECT_EQ(events->tracked(), model.events);
    EXPECT_EQ(stored(SessionManagerImpl::lastSessionKey), model.open);
    EXPECT_EQ(stored(SessionManagerImpl::lastForegroundSessionKey), model.lastForeground);
    EXPECT_EQ(store->readNumber(SessionManagerImpl::counterKey), model.counter);
    EXPECT_EQ(sessions, model.sessions);
    events->forget();
    model.events.clear();
  }
};

TEST_P(SessionManagerProperties, whateverHappensIsReportedAndStoredAsTheModelSays) {
  for (int round = 0; round < 3000 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    step();
    expectWhatTheModelSays();
  }
}

INSTANTIATE_TEST_SUITE_P(Automatic, SessionManagerProperties, testing::Values(true));
INSTANTIATE_TEST_SUITE_P(Manual, SessionManagerProperties, testing::Values(false));

}  // namespace
}  // namespace kite::test
