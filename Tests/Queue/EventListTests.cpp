#include "Queue/EventList.h"

#include "Queue/IdFilter.h"
#include "Support/Events.h"
#include "Support/InMemoryKVStorage.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>
#include <thread>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string idOf(std::size_t number) { return std::string("E-").append(std::to_string(number)); }

/// Events with the numbers from `begin` to `end`.
void append(EventList& list, std::size_t begin, std::size_t end) {
  EventEncoder encoder;
  const auto user = aUser();
  for (std::size_t i = begin; i < end; ++i) list.append(encoder.encode(anEvent(idOf(i), user)));
}

EventList listOf(std::size_t count) {
  EventList list;
  append(list, 0, count);
  return list;
}

std::set<std::string> ids(std::size_t begin, std::size_t end) {
  std::set<std::string> result;
  for (std::size_t i = begin; i < end; ++i) result.insert(idOf(i));
  return result;
}

/// Identifiers of the numbers that `wanted` wants.
template <class Wanted>
std::vector<std::string> idsWhere(std::size_t count, Wanted wanted) {
  std::vector<std::string> result;
  for (std::size_t i = 0; i < count; ++i)
    if (wanted(i)) result.push_back(idOf(i));
  return result;
}

std::vector<std::uint64_t> appendedOrdinals(const Larder::ListEdit& edit) {
  std::vector<std::uint64_t> ordinals;
  for (const auto& row : edit.appended) ordinals.push_back(row.ordinal);
  return ordinals;
}

TEST(EventListTests, beginsEmpty) {
  const EventList list;
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(list.size(), 0U);
  EXPECT_THAT(*list.first(10), IsEmpty());
}

TEST(EventListTests, keepsTheOrderOfInsertionAcrossChunks) {
  const auto list = listOf(1300);
  EXPECT_EQ(list.size(), 1300U);
  EXPECT_EQ(idsOf(list), idsWhere(1300, [](std::size_t) { return true; }));
}

TEST(EventListTests, givesTheOldestEventsAtMostAsManyAsThereAre) {
  const auto list = listOf(700);
  EXPECT_EQ(idsOf(*list.first(600)), idsWhere(600, [](std::size_t) { return true; }));
  EXPECT_EQ(list.first(701)->size(), 700U);
  EXPECT_THAT(*list.first(0), IsEmpty());
}

TEST(EventListTests, aCopyStaysAsItWas) {
  auto list = listOf(3);
  const auto copy = list;
  append(list, 3, 5);
  list.remove({"E-0"});
  EXPECT_THAT(idsOf(copy), ElementsAre("E-0", "E-1", "E-2"));
  EXPECT_THAT(idsOf(list), ElementsAre("E-1", "E-2", "E-3", "E-4"));
}

TEST(EventListTests, copiesGoOnIndependently) {
  auto list = listOf(2);
  auto copy = list;
  append(list, 10, 11);
  append(copy, 20, 22);
  append(list, 11, 12);
  EXPECT_THAT(idsOf(list), ElementsAre("E-0", "E-1", "E-10", "E-11"));
  EXPECT_THAT(idsOf(copy), ElementsAre("E-0", "E-1", "E-20", "E-21"));
}

TEST(EventListTests, copiesAreReadWhileTheListGrows) {
  auto list = listOf(10);
  const auto copy = list;
  std::thread reader([copy] { EXPECT_EQ(idsOf(copy).size(), 10U); });
  append(list, 10, 600);
  reader.join();
  EXPECT_EQ(list.size(), 600U);
}

TEST(EventListTests, removesAPrefixThatEndsWithinAChunk) {
  auto list = listOf(1300);
  list.remove(ids(0, 700));
  EXPECT_EQ(list.size(), 600U);
  EXPECT_EQ(idsOf(list), idsWhere(1300, [](std::size_t i) { return i >= 700; }));
}

TEST(EventListTests, removesEventsFromAnywhereAndKeepsTheOrderOfTheRest) {
  auto list = listOf(1300);
  std::set<std::string> everyThird;
  for (std::size_t i = 0; i < 1300; i += 3) everyThird.insert(idOf(i));
  list.remove(everyThird);
  EXPECT_EQ(idsOf(list), idsWhere(1300, [](std::size_t i) { return i % 3 != 0; }));
}

TEST(EventListTests, removesEveryEventOfOneIdentifier) {
  EventList list;
  for (const char* id : {"A", "B", "A"}) list.append(pending(anEvent(id)));
  list.remove({"A"});
  EXPECT_THAT(idsOf(list), ElementsAre("B"));
}

TEST(EventListTests, ignoresIdentifiersThatItDoesNotHold) {
  auto list = listOf(3);
  list.remove({"X", "Y"});
  EXPECT_THAT(idsOf(list), ElementsAre("E-0", "E-1", "E-2"));
}

TEST(EventListTests, canBeEmptiedAndFilledAgain) {
  auto list = listOf(600);
  list.remove(ids(0, 600));
  EXPECT_TRUE(list.empty());
  append(list, 600, 603);
  EXPECT_THAT(idsOf(list), ElementsAre("E-600", "E-601", "E-602"));
}

TEST(EventListTests, isEncodableWhileEveryEventIs) {
  auto list = listOf(2);
  EXPECT_TRUE(list.isEncodable());
  list.append(pending(anUnencodableEvent("bad")));
  list.append(pending(anUnencodableEvent("worse")));
  EXPECT_FALSE(list.isEncodable());
  list.remove({"bad"});
  EXPECT_FALSE(list.isEncodable());
  list.remove({"worse"});
  EXPECT_TRUE(list.isEncodable());
}

TEST(EventListTests, aWholeEditReplacesEverything) {
  const auto edit = *listOf(3).wholeEdit();
  EXPECT_TRUE(edit.replacesAll);
  EXPECT_THAT(edit.removed, IsEmpty());
  EXPECT_THAT(appendedOrdinals(edit), ElementsAre(0, 1, 2));
  EXPECT_EQ(storedText(*edit.appended[1].text), textOfAnEvent("E-1"));
}

TEST(EventListTests, anEditHoldsWhatWasAppended) {
  auto list = listOf(511);
  const auto saved = list;
  append(list, 511, 514);
  const auto edit = list.editFrom(saved);
  EXPECT_FALSE(edit.replacesAll);
  EXPECT_THAT(edit.removed, IsEmpty());
  EXPECT_THAT(appendedOrdinals(edit), ElementsAre(511, 512, 513));
  EXPECT_EQ(storedText(*edit.appended[2].text), textOfAnEvent("E-513"));
}

TEST(EventListTests, anEditOfAnUnchangedListIsEmpty) {
  const auto list = listOf(600);
  const auto edit = list.editFrom(list);
  EXPECT_FALSE(edit.replacesAll);
  EXPECT_THAT(edit.removed, IsEmpty());
  EXPECT_THAT(edit.appended, IsEmpty());
}

TEST(EventListTests, anEditNamesARemovedPrefixAsOneRange) {
  auto list = listOf(1300);
  const auto saved = list;
  list.remove(ids(0, 700));
  EXPECT_THAT(list.editFrom(saved).removed, ElementsAre(Larder::OrdinalRange{0, 700}));
}

TEST(EventListTests, anEditNamesScatteredRemovalsOneByOne) {
  auto list = listOf(10);
  const auto saved = list;
  list.remove({"E-1", "E-4", "E-5", "E-9"});
  EXPECT_THAT(list.editFrom(saved).removed,
              ElementsAre(Larder::OrdinalRange{1, 2}, Larder::OrdinalRange{4, 6},
                          Larder::OrdinalRange{9, 10}));
}

TEST(EventListTests, anEditLeavesOutWhatCameAndWentSince) {
  auto list = listOf(2);
  const auto saved = list;
  append(list, 2, 5);
  list.remove({"E-3"});
  const auto edit = list.editFrom(saved);
  EXPECT_THAT(edit.removed, IsEmpty());
  EXPECT_THAT(appendedOrdinals(edit), ElementsAre(2, 4));
}

TEST(EventListTests, neverUsesAnOrdinalTwice) {
  auto list = listOf(3);
  list.remove(ids(0, 3));
  append(list, 3, 4);
  EXPECT_THAT(appendedOrdinals(*list.wholeEdit()), ElementsAre(3));
}

TEST(EventListTests, countsTheEventsFromAnOrdinalOn) {
  EXPECT_EQ(EventList().countFrom(0), 0U);
  auto list = listOf(1300);
  list.remove(ids(510, 520));
  list.remove({idOf(7), idOf(1299)});
  for (const std::uint64_t ordinal : {0U, 7U, 8U, 511U, 512U, 519U, 520U, 1024U, 1298U, 1299U}) {
    const auto counted = idsWhere(
        1299, [&](std::size_t i) { return i >= ordinal && i != 7 && (i < 510 || i >= 520); });
    EXPECT_EQ(list.countFrom(ordinal), counted.size()) << ordinal;
  }
  EXPECT_EQ(list.countFrom(1300), 0U);
}

TEST(EventListTests, goesOnAfterAnOrdinalThatItWasGiven) {
  EventList list;
  list.append(pending(anEvent("A")), 7);
  list.append(pending(anEvent("B")));
  EXPECT_THAT(appendedOrdinals(*list.wholeEdit()), ElementsAre(7, 8));
}

/// A source of numbers that look random and are the same each time.
class Numbers {
 public:
  std::size_t below(std::size_t limit) {
    _state = _state * 6364136223846793005U + 1442695040888963407U;
    return (_state >> 33) % limit;
  }

 private:
  std::uint64_t _state = 2026;
};

TEST(EventListTests, editsBringAStoreFromEachSavedStateToTheNext) {
  Numbers numbers;
  InMemoryKVStorage store;
  EventList list;
  EventList saved;
  store.edit("key", *list.wholeEdit(), Larder::Durability::survivesKill);
  std::size_t next = 0;
  for (int round = 0; round < 60; ++round) {
    const std::size_t grown = next + numbers.below(300);
    append(list, next, grown);
    next = grown;
    std::set<std::string> removed;
    const std::size_t begin = numbers.below(next + 1);
    for (std::size_t i = begin; i < next && removed.size() < 200; i += 1 + numbers.below(3))
      removed.insert(idOf(i));
    list.remove(removed);
    if (numbers.below(3) == 0) continue;  // the next edit spans several changes
    store.edit("key", list.editFrom(saved), Larder::Durability::survivesKill);
    saved = list;
    std::string expected;
    for (const auto& event : all(list))
      expected.append(expected.empty() ? "[" : ",").append(storedText(*event));
    EXPECT_EQ(store.text("key"), expected.empty() ? "[]" : expected + "]");
  }
}

// The rest is about events whose texts are in a store.

constexpr std::string_view savedKey = "key";

std::string uuid(std::size_t number) {
  UUID id;
  id.bytes[0] = 0xAB;
  id.bytes[14] = static_cast<std::uint8_t>(number >> 8);
  id.bytes[15] = static_cast<std::uint8_t>(number);
  return id.text();
}

/// Events with UUIDs, saved and read by their places from now on.
EventList savedList(InMemoryKVStorage& store, std::size_t count) {
  EventList list;
  for (std::size_t i = 0; i < count; ++i) list.append(pending(anEvent(uuid(i))));
  list.place(store.edit(savedKey, *list.wholeEdit(), Larder::Durability::survivesKill).placed);
  return list;
}

/// A file whose rows are damaged, or that cannot be read at all.
class BadFile final : public Larder::RowFile {
 public:
  explicit BadFile(std::optional<std::string> error) : _error(std::move(error)) {}
  std::optional<std::string> read(std::span<const Larder::RowPlace> places,
                                  const Take& take) const override {
    if (!_error) {
      for ([[maybe_unused]] const auto& place : places) take(std::nullopt);
    }
    return _error;
  }

 private:
  const std::optional<std::string> _error;
};

void replaceFile(EventList& list, std::uint64_t ordinal, std::optional<std::string> error) {
  list.place({{ordinal, {}, {std::make_shared<BadFile>(std::move(error)), 0, 1}}});
}

TEST(EventListTests, eventsThatWereSavedAreReadBackWhereTheyAre) {
  InMemoryKVStorage store;
  auto list = savedList(store, 1100);
  list.append(pending(anEvent("in memory")));
  const auto events = all(list);
  ASSERT_EQ(events.size(), 1101U);
  EXPECT_EQ(storedText(*events[700]), textOfAnEvent(uuid(700)));
  EXPECT_EQ(events[1100]->id(), "in memory");
}

TEST(EventListTests, eventsThatWereSavedLeaveMemory) {
  InMemoryKVStorage store;
  EventList list;
  const auto event = pending(anEvent(uuid(1)));
  const std::weak_ptr<const EncodedEvent> watched = event;
  list.append(event);
  list.place(store.edit(savedKey, *list.wholeEdit(), Larder::Durability::survivesKill).placed);
  EXPECT_EQ(watched.use_count(), 1);
}

TEST(EventListTests, anEventWhoseIdentifierIsNoUUIDStaysInMemory) {
  InMemoryKVStorage store;
  EventList list;
  const auto event = pending(anEvent("A"));
  list.append(event);
  list.place(store.edit(savedKey, *list.wholeEdit(), Larder::Durability::survivesKill).placed);
  EXPECT_EQ(all(list)[0], event);
}

TEST(EventListTests, anEventFurtherIntoItsFileThanAPlaceCanTellStaysInMemory) {
  constexpr std::uint64_t furthest = std::numeric_limits<std::uint32_t>::max();
  InMemoryKVStorage store;
  const auto event = pending(anEvent(uuid(1)));
  const auto placedAt = [&](std::uint64_t offset) {
    EventList list;
    list.append(event);
    store.placeRowsAt(offset);
    list.place(store.edit(savedKey, *list.wholeEdit(), Larder::Durability::survivesKill).placed);
    return list;
  };
  EXPECT_NE(all(placedAt(furthest))[0], event);
  EXPECT_EQ(all(placedAt(furthest + 1))[0], event);
}

TEST(EventListTests, aPlaceIsToldAsItWasGiven) {
  const auto file = std::make_shared<BadFile>(std::nullopt);
  const auto place = PendingEvent({7, *UUID::parse(uuid(1)), {file, 4'294'967'295, 9}}).place();
  EXPECT_EQ(place.file, file);
  EXPECT_EQ(place.offset, 4'294'967'295);
  EXPECT_EQ(place.size, 9U);
}

TEST(EventListTests, anEarlierCopyKeepsItsEvents) {
  InMemoryKVStorage store;
  EventList list;
  list.append(pending(anEvent(uuid(1))));
  const auto copy = list;
  list.place(store.edit(savedKey, *list.wholeEdit(), Larder::Durability::survivesKill).placed);
  store.remove(savedKey);
  EXPECT_THAT(idsOf(copy), ElementsAre(uuid(1)));
  EXPECT_THAT(idsOf(list), ElementsAre(uuid(1)));
}

TEST(EventListTests, removesSavedEventsByTheirIdentifiers) {
  InMemoryKVStorage store;
  auto list = savedList(store, 4);
  const auto saved = list;
  list.remove({uuid(1), uuid(2), "A"});
  EXPECT_THAT(idsOf(list), ElementsAre(uuid(0), uuid(3)));
  EXPECT_THAT(list.editFrom(saved).removed, ElementsAre(Larder::OrdinalRange{1, 3}));
}

TEST(EventListTests, anEventWhoseTextIsDamagedIsLostAndStaysInTheBatch) {
  InMemoryKVStorage store;
  auto list = savedList(store, 3);
  replaceFile(list, 1, std::nullopt);
  const auto events = all(list);
  ASSERT_EQ(events.size(), 3U);
  EXPECT_TRUE(events[1]->isLost());
  EXPECT_THAT(idsOf(events), ElementsAre(uuid(0), uuid(1), uuid(2)));
}

TEST(EventListTests, aFileThatCannotBeReadFailsTheReading) {
  InMemoryKVStorage store;
  auto list = savedList(store, 3);
  replaceFile(list, 1, "broken wire");
  const auto events = list.first(2);
  ASSERT_FALSE(events);
  EXPECT_EQ(events.error(), "broken wire");
  EXPECT_TRUE(list.first(1));
  EXPECT_FALSE(list.wholeEdit());
}

TEST(EventListTests, aWholeEditHoldsSavedEventsToo) {
  InMemoryKVStorage store;
  auto list = savedList(store, 3);
  replaceFile(list, 1, std::nullopt);
  const auto edit = *list.wholeEdit();
  EXPECT_THAT(appendedOrdinals(edit), ElementsAre(0, 2));
  EXPECT_EQ(storedText(*edit.appended[1].text), textOfAnEvent(uuid(2)));
}

TEST(EventListTests, ignoresPlacesOfEventsThatAreGone) {
  InMemoryKVStorage store;
  auto list = savedList(store, 600);
  auto rows = store.readList(savedKey)->rows;
  list.remove({uuid(0), uuid(599)});
  list.place(std::move(rows));
  EXPECT_EQ(list.size(), 598U);
  EXPECT_EQ(idsOf(list).front(), uuid(1));
}

TEST(IdFilterTests, tellsEventsApart) {
  const std::set<std::string> wanted{"A", uuid(1), "ab000000-0000-0000-0000-000000000002"};
  const IdFilter filter(wanted);
  const auto matches = [&](const std::string& id) {
    return filter.matches(PendingEvent(pending(anEvent(id)), 0));
  };
  EXPECT_TRUE(matches("A"));
  EXPECT_FALSE(matches("B"));
  EXPECT_TRUE(matches(uuid(1)));
  EXPECT_FALSE(matches(uuid(2)));  // in lower case it is another identifier
  EXPECT_TRUE(matches("ab000000-0000-0000-0000-000000000002"));
}

}  // namespace
}  // namespace kite::test
