#include "Events/EncodedEvent.h"

#include "Support/Events.h"
#include "Support/TrackedEvents.h"

#include <gmock/gmock.h>

#include <cmath>

namespace kite::test {
namespace {

using testing::ElementsAre;

struct Stamped {
  std::string text;
  std::optional<EncodingError> error;
};

Stamped stamped(const EncodedEvent& event, double requestTimestamp) {
  Stamped result;
  result.error = event.appendStamped(result.text, requestTimestamp);
  return result;
}

std::string encoded(const StoredEvent& event) {
  std::string text;
  EXPECT_EQ(appendJSON(text, event), std::nullopt);
  return text;
}

TEST(EncodedEventTests, itsStoredFormIsTheEventsText) {
  EXPECT_EQ(storedText(*pending(anEvent("E-1"))), textOfAnEvent("E-1"));
  EXPECT_EQ(pending(anEvent("E-1"))->size(), textOfAnEvent("E-1").size());
}

TEST(EncodedEventTests, itsWireFormIsTheTextOfTheStampedEvent) {
  auto event = anEvent("E-1");
  const auto wire = stamped(*pending(event), 20.25);
  event.requestTimestamp = 20.25;
  EXPECT_EQ(wire.error, std::nullopt);
  EXPECT_EQ(wire.text, encoded(event));
}

TEST(EncodedEventTests, aRequestTimestampOfItsOwnIsStoredAndReplacedOnTheWire) {
  auto event = anEvent("E-1");
  event.requestTimestamp = 7;
  const auto handle = pending(event);
  EXPECT_EQ(storedText(*handle), encoded(event));
  event.requestTimestamp = 20.25;
  EXPECT_EQ(stamped(*handle, 20.25).text, encoded(event));
}

TEST(EncodedEventTests, givesItsIdentifierBack) {
  for (const char* id : {"E-1", "", "a\"b\\c\n", "\xC3\xA9"}) {
    const auto handle = pending(anEvent(id));
    EXPECT_EQ(handle->id(), id);
  }
}

TEST(EncodedEventTests, decodesToTheEventThatItWasMadeOf) {
  EXPECT_EQ(pending(anEvent("E-1"))->event(), anEvent("E-1"));
}

TEST(EncodedEventTests, anEventThatDoesNotEncodeIsKeptWithTheReason) {
  const auto handle = pending(anUnencodableEvent("E-1"));
  ASSERT_NE(handle->encodingError(), nullptr);
  EXPECT_THAT(handle->encodingError()->codingPath, ElementsAre("data", "action_info", "price"));
  EXPECT_EQ(handle->id(), "E-1");
  EXPECT_EQ(handle->event().app, "trail-maps");
  EXPECT_EQ(storedText(*handle), "");
  EXPECT_EQ(handle->size(), 0U);
}

TEST(EncodedEventTests, anEventThatDoesNotEncodeHasNoWireFormEither) {
  const auto wire = stamped(*pending(anUnencodableEvent("E-1")), 20);
  ASSERT_TRUE(wire.error);
  EXPECT_THAT(wire.error->codingPath, ElementsAre("data", "action_info", "price"));
}

TEST(EncodedEventTests, anEventWhoseOwnRequestTimestampDoesNotEncodeCanStillBeSent) {
  auto event = anEvent("E-1");
  event.requestTimestamp = std::nan("");
  const auto handle = pending(event);
  EXPECT_NE(handle->encodingError(), nullptr);
  const auto wire = stamped(*handle, 20);
  event.requestTimestamp = 20;
  EXPECT_EQ(wire.error, std::nullopt);
  EXPECT_EQ(wire.text, encoded(event));
}

TEST(EncodedEventTests, aRequestTimeThatIsNotFiniteFailsThere) {
  const auto wire = stamped(*pending(anEvent("E-1")), std::nan(""));
  ASSERT_TRUE(wire.error);
  EXPECT_THAT(wire.error->codingPath, ElementsAre("request_timestamp"));
}

StoredEvent aNamelessEvent(std::string id) {
  auto event = anEvent(std::move(id));
  event.type = EventType::custom("");
  return event;
}

TEST(EncodedEventTests, aCustomEventWithoutANameComesBackAsOne) {
  const auto event = aNamelessEvent("a\"b");
  const auto handle = pending(event);
  EXPECT_EQ(handle->event(), event);
  EXPECT_EQ(handle->id(), "a\"b");
}

TEST(EncodedEventTests, aRequestTimeThatIsNotFiniteFailsACustomEventWithoutANameThereToo) {
  const auto wire = stamped(*pending(aNamelessEvent("E-1")), std::nan(""));
  ASSERT_TRUE(wire.error);
  EXPECT_THAT(wire.error->codingPath, ElementsAre("request_timestamp"));
}

TEST(EncodedEventTests, onAnErrorWhatWasWrittenBeforeItStays) {
  EXPECT_EQ(stamped(*pending(anEvent("E-1")), std::nan("")).text,
            R"({"type":"UserAction","id":"E-1","timestamp":12.5,"request_timestamp":)");
}

TEST(EventEncoderTests, encodesTheBlockOfOneUserOnce) {
  EventEncoder encoder;
  const auto user = aUser();
  const auto first = encoder.encode(anEvent("E-1", user));
  const auto second = encoder.encode(anEvent("E-2", user));
  EXPECT_TRUE(first->sharesUserTextWith(*second));
}

TEST(EventEncoderTests, anotherUserOrApplicationHasABlockOfItsOwn) {
  EventEncoder encoder;
  const auto user = aUser();
  const auto first = encoder.encode(anEvent("E-1", user));
  EXPECT_EQ(storedText(*encoder.encode(anEvent("E-2", aUser("AU")))),
            storedText(*pending(anEvent("E-2", aUser("AU")))));
  auto otherApp = anEvent("E-3", user);
  otherApp.app = "other";
  const auto third = encoder.encode(otherApp);
  EXPECT_EQ(storedText(*third), encoded(otherApp));
  EXPECT_FALSE(first->sharesUserTextWith(*third));
}

TEST(EventEncoderTests, aUserThatDoesNotEncodeFailsEachOfItsEvents) {
  EventEncoder encoder;
  const Shared<User> user = User{.info = {{"score", std::nan("")}}, .ids = {}};
  for (const char* id : {"E-1", "E-2"}) {
    const auto handle = encoder.encode(anEvent(id, user));
    ASSERT_NE(handle->encodingError(), nullptr);
    EXPECT_THAT(handle->encodingError()->codingPath, ElementsAre("user", "info", "score"));
  }
}

TEST(EventEncoderTests, goesOnAfterAnEventThatDoesNotEncode) {
  EventEncoder encoder;
  encoder.encode(anUnencodableEvent("E-1"));
  EXPECT_EQ(storedText(*encoder.encode(anEvent("E-2"))), textOfAnEvent("E-2"));
}

UserAction::Payload anAction() {
  return {.id = *UUID::parse("79690975-FBDE-45B0-A2A3-7357AE2CC59B"),
          .timestamp = 12.5,
          .actionKind = "buy \"it\"",
          .actionInfo = {{"price", 9.5}, {"gift", true}, {"count", 3}},
          .secondsFromSessionStart = 2.0,
          .sessionId = UUID::noop(),
          .processId = UUID::noop(),
          .lastForegroundSessionId = std::nullopt,
          .isBackgroundEvent = false};
}

/// An event as it was tracked, and the record that it stands for.
void expectOneEncoding(const TrackedEvent& event) {
  const auto direct = EventEncoder().encode(event);
  const auto expected = pending(event.record());
  EXPECT_EQ(storedText(*direct), storedText(*expected));
  EXPECT_EQ(direct->id(), event.id());
  EXPECT_EQ(stamped(*direct, 20.25).text, stamped(*expected, 20.25).text);
  ASSERT_EQ(direct->encodingError() == nullptr, expected->encodingError() == nullptr);
  if (direct->encodingError()) {
    EXPECT_EQ(*direct->encodingError(), *expected->encodingError());
  }
}

template <class Kind>
void expectOneEncodingOf(Kind kind) {
  expectOneEncoding(tracked(std::move(kind), *aUser()));
}

TEST(EventEncoderTests, encodesAnActionAsItsRecord) {
  expectOneEncodingOf(anAction());
  auto outsideAnySession = anAction();
  outsideAnySession.secondsFromSessionStart = std::nullopt;
  outsideAnySession.sessionId = std::nullopt;
  outsideAnySession.lastForegroundSessionId = UUID::noop();
  outsideAnySession.isBackgroundEvent = true;
  outsideAnySession.actionInfo = {};
  expectOneEncodingOf(std::move(outsideAnySession));
}

TEST(EventEncoderTests, encodesEveryOtherKindAsItsRecord) {
  const UUID id = UUID::noop();
  const JSONValue::Object own{{"a", 1}, {"subtype", "own"}, {"z", Null{}}};
  for (const auto& storefront :
       {std::optional<Storefront>(), std::optional(Storefront{"143450", "ITA"})}) {
    expectOneEncodingOf(SessionEvent{SessionStartPayload{id, 1.5}, storefront});
    expectOneEncodingOf(SessionEvent{SessionEndPayload{id, true, 2.5, own, id, 1.5}, storefront});
    for (const auto& version : {std::optional<std::string>(), std::optional<std::string>("1.0")}) {
      expectOneEncodingOf(
          InstallEvent{{id, 1.5, true, Usher::CreationType::readFromFile,
                        Usher::CreationType::notApplicable, version, version, "2.0", std::nullopt},
                       storefront});
    }
  }
  expectOneEncodingOf(UserInfoUpdated::Payload{own, {}, {"a", "\"b"}, {}, id, 1.5});
  expectOneEncodingOf(CustomEvent{"Orders", {own, id, 1.5}});
  expectOneEncodingOf(DebugEvent::Payload{id, 1.5, Severity::error, "m", "c", "d", std::nullopt,
                                          "t", std::nullopt, own, "f.cpp", "f()", 42});
  expectOneEncodingOf(ExperimentSegmentsReceived{id, 1.5});
}

TEST(EventEncoderTests, encodesTheLongestOfEachPart) {
  auto action = anAction();
  action.timestamp = action.secondsFromSessionStart.emplace(-2.2250738585072014e-308);
  action.lastForegroundSessionId = UUID::noop();
  for (const char* name : {"", "n", "\"", "\x01", "\xC3\xA4", "\xFF"}) {
    std::string repeated;
    for (int i = 0; i < 1000; ++i) repeated += name;
    action.actionKind = ShortText(repeated);
    expectOneEncodingOf(action);
  }
}

TEST(EventEncoderTests, failsAnActionAsItsRecord) {
  auto payload = anAction();
  payload.timestamp = std::nan("");
  expectOneEncodingOf(payload);
  payload = anAction();
  payload.actionInfo.set("ratio", std::nan(""));
  expectOneEncodingOf(payload);
  payload = anAction();
  payload.secondsFromSessionStart = std::nan("");
  expectOneEncodingOf(payload);
}

}  // namespace
}  // namespace kite::test
