#include "Queue/StoredEventList.h"

#include "JSON/JSONDecoder.h"
#include "Queue/EventReader.h"
#include "Support/AppendRows.h"
#include "Support/Events.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/ParsedJSON.h"
#include "Support/Rows.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

StoredEventList loadArray(std::string text) {
  InMemoryKVStorage storage;
  storage.put("k", std::move(text));
  return StoredEventList::load(storage, "k");
}

StoredEventList loadRows(std::vector<Larder::Row> rows) {
  InMemoryKVStorage storage;
  appendRows(storage, "k", std::move(rows));
  return StoredEventList::load(storage, "k");
}

/// The text of an event with one place of it changed.
std::string changed(const std::string& from, const std::string& to) {
  std::string text = textOfAnEvent("E-1");
  text.replace(text.find(from), from.size(), to);
  return text;
}

EventHandle read(std::string_view text) { return EventReader().read(text); }

TEST(StoredEventListTests, withoutAValueTheQueueIsEmptyAndNotSaved) {
  const auto loaded = StoredEventList::load(InMemoryKVStorage(), "k");
  EXPECT_TRUE(loaded.events.empty());
  EXPECT_FALSE(loaded.isSaved);
}

TEST(StoredEventListTests, rowsComeBackInOrderWithTheirOrdinals) {
  const auto loaded = loadRows({row(3, textOfAnEvent("A")), row(8, textOfAnEvent("B"))});
  EXPECT_THAT(idsOf(loaded.events), ElementsAre("A", "B"));
  EXPECT_TRUE(loaded.isSaved);
  const auto rows = loaded.events.wholeEdit()->appended;
  EXPECT_EQ(rows[0].ordinal, 3U);
  EXPECT_EQ(rows[1].ordinal, 8U);
}

TEST(StoredEventListTests, aListWithoutRowsIsAnEmptyQueueThatIsSaved) {
  const auto loaded = loadRows({});
  EXPECT_TRUE(loaded.events.empty());
  EXPECT_TRUE(loaded.isSaved);
}

TEST(StoredEventListTests, oneRowThatIsNotAnEventEmptiesTheWholeQueue) {
  const auto loaded = loadRows({row(0, textOfAnEvent("A")), row(1, R"({"type":""})")});
  EXPECT_TRUE(loaded.events.empty());
  EXPECT_FALSE(loaded.isSaved);
}

TEST(StoredEventListTests, aRowWithATagIsNotReadUntilItIsWanted) {
  InMemoryKVStorage storage;
  const auto id = *UUID::parse("AB000000-0000-0000-0000-000000000001");
  auto tagged = row(0, "no event");
  tagged.tag = id;
  appendRows(storage, "k", {tagged, row(1, textOfAnEvent("B"))});
  const auto loaded = StoredEventList::load(storage, "k");
  EXPECT_TRUE(loaded.isSaved);
  EXPECT_EQ(loaded.events.size(), 2U);
}

TEST(StoredEventListTests, aRowFurtherIntoItsFileThanAPlaceCanTellIsReadAtOnce) {
  InMemoryKVStorage storage;
  storage.placeRowsAt(std::uint64_t{1} << 32);
  const std::string id = "AB000000-0000-0000-0000-000000000001";
  auto tagged = row(0, textOfAnEvent(id));
  tagged.tag = *UUID::parse(id);
  appendRows(storage, "k", {tagged});
  const auto loaded = StoredEventList::load(storage, "k");
  storage.failReads(true);
  EXPECT_TRUE(loaded.isSaved);
  EXPECT_EQ(storedText(*all(loaded.events)[0]), textOfAnEvent(id));
}

TEST(StoredEventListTests, aDamagedRowThatIsReadAtOnceIsALostEventOfTheQueue) {
  InMemoryKVStorage storage;
  const std::string id = "AB000000-0000-0000-0000-000000000001";
  appendRows(storage, "k", {row(0, textOfAnEvent("A"))});
  storage.placeRowsAt(std::uint64_t{1} << 32);
  auto tagged = row(1, textOfAnEvent(id));
  tagged.tag = *UUID::parse(id);
  appendRows(storage, "k", {tagged});
  storage.damageRows();
  const auto events = all(StoredEventList::load(storage, "k").events);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_TRUE(events[0]->isLost());
  EXPECT_TRUE(events[1]->isLost());
  EXPECT_EQ(events[1]->id(), id);
}

TEST(StoredEventListTests, savedEventsComeBackWithTheirIdentifiers) {
  InMemoryKVStorage storage;
  const std::string id = "AB000000-0000-0000-0000-000000000001";
  EventList events;
  events.append(pending(anEvent(id)));
  storage.edit("k", *events.wholeEdit(), Larder::Durability::survivesKill);
  auto loaded = StoredEventList::load(storage, "k").events;
  EXPECT_EQ(storedText(*all(loaded)[0]), textOfAnEvent(id));
  loaded.remove({id});
  EXPECT_TRUE(loaded.empty());
}

TEST(StoredEventListTests, anEventOfAnEmptyTypeEmptiesTheWholeQueueAtTheNextStart) {
  InMemoryKVStorage storage;
  EventList events;
  events.append(pending(anEvent("AB000000-0000-0000-0000-000000000001")));
  auto nameless = anEvent("AB000000-0000-0000-0000-000000000002");
  nameless.type = EventType::custom("");
  events.append(pending(nameless));
  storage.edit("k", *events.wholeEdit(), Larder::Durability::survivesKill);
  const auto loaded = StoredEventList::load(storage, "k");
  EXPECT_TRUE(loaded.events.empty());
  EXPECT_FALSE(loaded.isSaved);
}

TEST(StoredEventListTests, whatComesLaterUsesNoOrdinalThatTheListHasUsed) {
  InMemoryKVStorage storage;
  appendRows(storage, "k", {row(6, textOfAnEvent("A"))});
  storage.edit("k", {.replacesAll = false, .removed = {{6, 7}}, .appended = {}},
               Larder::Durability::survivesKill);
  const auto saved = StoredEventList::load(storage, "k").events;
  auto events = saved;
  events.append(pending(anEvent("C")));
  EXPECT_EQ(events.editFrom(saved).appended.front().ordinal, 7U);
}

TEST(StoredEventListTests, anArrayComesBackInOrder) {
  const auto loaded = loadArray("[" + textOfAnEvent("A") + "," + textOfAnEvent("B") + "]");
  EXPECT_THAT(idsOf(loaded.events), ElementsAre("A", "B"));
  EXPECT_FALSE(loaded.isSaved);
}

TEST(StoredEventListTests, anArrayMayBeSpacedOut) {
  const auto loaded = loadArray(" [ \n" + textOfAnEvent("A") + " , " + textOfAnEvent("B") + " ]\n");
  EXPECT_THAT(idsOf(loaded.events), ElementsAre("A", "B"));
  EXPECT_EQ(storedText(*all(loaded.events)[0]), textOfAnEvent("A"));
  EXPECT_TRUE(loadArray(" [ ] ").events.empty());
}

TEST(StoredEventListTests, bytesThatAreNotAnArrayOfEventsAreAnEmptyQueue) {
  const std::string event = textOfAnEvent("A");
  const std::vector<std::string> texts{"",
                                       "[",
                                       "]",
                                       "{}",
                                       "null",
                                       "7",
                                       "\"[]\"",
                                       "[1]",
                                       "[null]",
                                       "[[]]",
                                       "[{}]",
                                       "not JSON",
                                       event,
                                       "\xFF\xFE",
                                       "[]]",
                                       "[] x",
                                       "[" + event,
                                       event + "]",
                                       "[" + event + ",]",
                                       "[," + event + "]",
                                       "[" + event + event + "]",
                                       "[" + event + "]]",
                                       "[" + event + "] x",
                                       "[" + event + ",1]",
                                       "[" + event + ",{\"type\":\"\"}]"};
  for (const auto& text : texts) EXPECT_TRUE(loadArray(text).events.empty()) << text;
}

EventHandle readSaved(std::string_view text) { return EventReader().readSaved(text); }

TEST(EventReaderTests, keepsSavedTextAsItIs) {
  const auto text = changed("12.5", "1250e-2");
  const auto event = readSaved(text);
  EXPECT_EQ(storedText(*event), text);
  EXPECT_EQ(event->id(), "E-1");
  EXPECT_EQ(event->event(), anEvent("E-1"));
}

TEST(EventReaderTests, stampsSavedText) {
  std::string wire;
  EXPECT_EQ(readSaved(textOfAnEvent("E-1"))->appendStamped(wire, 20), std::nullopt);
  EXPECT_EQ(wire, changed(R"(,"app")", R"(,"request_timestamp":20.0,"app")"));
}

TEST(EventReaderTests, findsItsWayThroughEscapesInTheHeadOfSavedText) {
  auto event = anEvent(R"(i"\d)");
  event.type = EventType::custom(R"(a "table", \)");
  const auto text = storedText(*pending(event));
  EXPECT_EQ(storedText(*readSaved(text)), text);
  EXPECT_EQ(readSaved(text)->id(), event.id);
  std::string wire;
  EXPECT_EQ(readSaved(text)->appendStamped(wire, 20), std::nullopt);
  event.requestTimestamp = 20;
  EXPECT_EQ(decodeStoredEvent(*decodeJSON(wire)), event);
}

TEST(EventReaderTests, keepsARequestTimestampOfTheEventsOwn) {
  const auto text = changed(R"(,"app")", R"(,"request_timestamp":7.5,"app")");
  for (const auto& event : {read(text), readSaved(text)}) {
    EXPECT_EQ(storedText(*event), text);
    EXPECT_EQ(event->event().requestTimestamp, 7.5);
    std::string wire;
    EXPECT_EQ(event->appendStamped(wire, 20), std::nullopt);
    EXPECT_EQ(wire, changed(R"(,"app")", R"(,"request_timestamp":20.0,"app")"));
  }
}

TEST(EventReaderTests, encodesAnewWhatIsInAnotherForm) {
  const std::vector<std::string> texts{
      changed(R"("type":"UserAction","id":"E-1")", R"("id":"E-1","type":"UserAction")"),
      changed(R"("type":)", R"("type": )"),
      textOfAnEvent("E-1") + " ",
      changed(R"("E-1")", R"("\u0045-1")"),
      changed(R"("app")", R"("more":{"data":{}},"app")"),
      changed(R"("app")", R"("request_timestamp":null,"app")"),
      changed(R"(,"data":)", R"(,"data":0,"data":)"),
      changed(R"("buy"})", R"("buy"},"more":{})"),
      changed(R"({"info":{"country":"NZ"},"ids":{"user_id":"U-1"}})",
              R"({"ids":{"user_id":"U-1"},"info":{"country":"NZ"}})"),
      changed(R"({"info":)", R"({"more":1,"info":)"),
      changed(R"("U-1"})", R"("U-1"},"more":{})"),
  };
  for (const auto& text : texts) {
    const auto event = read(text);
    ASSERT_NE(event, nullptr) << text;
    EXPECT_EQ(storedText(*event), textOfAnEvent("E-1")) << text;
  }
}

TEST(EventReaderTests, refusesWhatIsNotAnEvent) {
  const std::vector<std::string> texts{
      "",
      "{}",
      "[]",
      textOfAnEvent("E-1") + "}",
      textOfAnEvent("E-1").substr(0, 100),
      changed("UserAction", ""),
      changed("12.5", "12.5.5"),
      changed("12.5", "1e999"),
      changed("12.5", "+12.5"),
      changed("12.5", R"("12.5")"),
      changed(R"("U-1")", "1"),
      changed(R"({"country":"NZ"})", "[]"),
      changed(R"({"country":"NZ"})", "{]"),
      changed("buy", "b\x01uy"),
      changed("buy", "b\xFFuy"),
      changed("9.5", "09.5"),
      changed(R"("data":{)", R"("data":[{)"),
  };
  for (const auto& text : texts) EXPECT_EQ(read(text), nullptr) << text;
}

/// An event of so many containers one in the other, `innermost` in the last one.
std::string nestedText(int depth, const std::string& innermost) {
  constexpr int eventDataAndActionInfo = 3;
  const auto count = static_cast<std::size_t>(depth - eventDataAndActionInfo);
  return changed("9.5", std::string(count, '[') + innermost + std::string(count, ']'));
}

TEST(EventReaderTests, readsTextThatNestsAsDeeplyAsEventsEncode) {
  for (const char* innermost : {"", "1"}) {
    const auto text = nestedText(maximumEncodedDepth, innermost);
    EXPECT_EQ(read(text)->encodingError(), nullptr);
    EXPECT_EQ(storedText(*read(text)), text);
  }
}

TEST(EventReaderTests, anEventThatNestsMoreDeeplyThanItEncodesIsReadButDoesNotEncode) {
  for (const char* innermost : {"", "1"}) {
    const auto event = read(nestedText(maximumEncodedDepth + 1, innermost));
    ASSERT_NE(event, nullptr);
    EXPECT_NE(event->encodingError(), nullptr);
  }
}

}  // namespace
}  // namespace kite::test
