#include "Queue/StoredEventList.h"

#include "Queue/EventReader.h"
#include "Support/AppendRows.h"
#include "Support/Events.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/ParsedJSON.h"
#include "Support/TextSegment.h"

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
  const auto rows = loaded.events.wholeEdit().appended;
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

/// A store whose lists break off when they are read.
class BrokenStorage final : public Larder::KVStorage {
 public:
  explicit BrokenStorage(int attempts) : _attempts(attempts) {}

  std::shared_ptr<const Larder::StoredValue> read(std::string_view) const override {
    return std::make_shared<const Larder::StoredValue>(
        std::vector<Larder::StoredValue::StoredRow>());
  }
  bool readList(std::string_view, Larder::ListReader& reader) const override {
    for (int attempt = 0; attempt < _attempts; ++attempt) {
      reader.begin(7);
      reader.take(0, attempt == 0 ? R"({"type":""})" : textOfAnEvent("A"));
      if (attempt > 0) reader.take(1, textOfAnEvent("B"));
    }
    return _attempts > 1;
  }
  std::uint64_t revision() const override { return 0; }
  void write(std::string_view, Data) override {}
  void remove(std::string_view) override {}
  Larder::EditOutcome edit(std::string_view, const Larder::ListEdit&, Larder::Durability) override {
    return Larder::EditOutcome::failed;
  }
  std::optional<double> readNumber(std::string_view) const override { return std::nullopt; }
  void writeNumber(std::string_view, double) override {}
  std::optional<DynamicValue::Dictionary> readDictionary(std::string_view) const override {
    return std::nullopt;
  }
  void writeDictionary(std::string_view, const DynamicValue::Dictionary&) override {}

 private:
  const int _attempts;
};

TEST(StoredEventListTests, aListThatCannotBeReadIsAnEmptyQueueThatIsNotSaved) {
  const auto loaded = StoredEventList::load(BrokenStorage(1), "k");
  EXPECT_TRUE(loaded.events.empty());
  EXPECT_FALSE(loaded.isSaved);
}

TEST(StoredEventListTests, aListThatBeginsOnceMoreIsReadAnew) {
  const auto loaded = StoredEventList::load(BrokenStorage(2), "k");
  EXPECT_THAT(idsOf(loaded.events), ElementsAre("A", "B"));
  EXPECT_TRUE(loaded.isSaved);
}

TEST(StoredEventListTests, whatComesLaterUsesNoOrdinalThatTheListHasUsed) {
  const auto saved = StoredEventList::load(BrokenStorage(2), "k").events;
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
  EXPECT_EQ(storedText(*loaded.events[0]), textOfAnEvent("A"));
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

TEST(EventReaderTests, keepsTextThatIsInTheStoredForm) {
  const auto text = changed("12.5", "1250e-2");
  EXPECT_EQ(storedText(*read(text)), text);
  EXPECT_EQ(read(text)->id(), "E-1");
  EXPECT_EQ(read(text)->event(), anEvent("E-1"));
}

TEST(EventReaderTests, stampsTextThatItKept) {
  std::string wire;
  EXPECT_EQ(read(textOfAnEvent("E-1"))->appendStamped(wire, 20), std::nullopt);
  EXPECT_EQ(wire, changed(R"(,"app")", R"(,"request_timestamp":20.0,"app")"));
}

TEST(EventReaderTests, keepsARequestTimestampOfTheEventsOwn) {
  const auto text = changed(R"(,"app")", R"(,"request_timestamp":7.5,"app")");
  const auto event = read(text);
  EXPECT_EQ(storedText(*event), text);
  EXPECT_EQ(event->event().requestTimestamp, 7.5);
  std::string wire;
  EXPECT_EQ(event->appendStamped(wire, 20), std::nullopt);
  EXPECT_EQ(wire, changed(R"(,"app")", R"(,"request_timestamp":20.0,"app")"));
}

TEST(EventReaderTests, neighboursWithTheSameUserShareItsText) {
  EventReader reader;
  const auto first = reader.read(textOfAnEvent("A"));
  const auto second = reader.read(textOfAnEvent("B"));
  EXPECT_TRUE(first->sharesUserTextWith(*second));
  EXPECT_EQ(storedText(*second), textOfAnEvent("B"));
}

TEST(EventReaderTests, checksWhatStandsBesideAUserThatItKnows) {
  EventReader reader;
  ASSERT_NE(reader.read(textOfAnEvent("E-1")), nullptr);
  for (const auto& text : {changed("buy", "b\x01uy"), changed("12.5", "12.5.5"),
                           changed("9.5", "09.5"), textOfAnEvent("E-1") + "}"})
    EXPECT_EQ(reader.read(text), nullptr) << text;
  const auto event = reader.read(changed(R"("buy"})", R"("buy"},"more":{})"));
  ASSERT_NE(event, nullptr);
  EXPECT_EQ(storedText(*event), textOfAnEvent("E-1"));
}

TEST(EventReaderTests, aChangedUserIsReadAnew) {
  EventReader reader;
  const auto first = reader.read(textOfAnEvent("E-1"));
  const auto other = changed("NZ", "AU \\\"{}");
  const auto second = reader.read(other);
  EXPECT_FALSE(first->sharesUserTextWith(*second));
  EXPECT_EQ(storedText(*second), other);
  EXPECT_EQ(second->event().user, aUser("AU \"{}"));
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

TEST(EventReaderTests, remembersNoUserOfATextThatItRefused) {
  EventReader reader;
  const auto refused = changed(R"("U-1")", "1");
  EXPECT_EQ(reader.read(refused), nullptr);
  EXPECT_EQ(reader.read(refused), nullptr);
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

TEST(EventReaderTests, readsALongTextAfterAShortOne) {
  EventReader reader;
  reader.read(textOfAnEvent("E-1"));
  const auto text = changed("buy", std::string(100'000, 'x'));
  EXPECT_EQ(storedText(*reader.read(text)), text);
}

}  // namespace
}  // namespace kite::test
