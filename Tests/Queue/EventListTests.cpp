#include "Queue/EventList.h"

#include "Queue/IdFilter.h"
#include "Support/Events.h"
#include "Support/InMemoryKVStorage.h"

#include <gmock/gmock.h>

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
  EXPECT_THAT(list.first(10), IsEmpty());
}

TEST(EventListTests, keepsTheOrderOfInsertionAcrossChunks) {
  const auto list = listOf(1300);
  EXPECT_EQ(list.size(), 1300U);
  EXPECT_EQ(idsOf(list), idsWhere(1300, [](std::size_t) { return true; }));
  EXPECT_EQ(list[0]->id(), "E-0");
  EXPECT_EQ(list[512]->id(), "E-512");
  EXPECT_EQ(list[1299]->id(), "E-1299");
}

TEST(EventListTests, givesTheOldestEventsAtMostAsManyAsThereAre) {
  const auto list = listOf(700);
  EXPECT_EQ(idsOf(list.first(600)), idsWhere(600, [](std::size_t) { return true; }));
  EXPECT_EQ(list.first(701).size(), 700U);
  EXPECT_THAT(list.first(0), IsEmpty());
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
  const auto edit = listOf(3).wholeEdit();
  EXPECT_TRUE(edit.replacesAll);
  EXPECT_THAT(edit.removed, IsEmpty());
  EXPECT_THAT(appendedOrdinals(edit), ElementsAre(0, 1, 2));
  EXPECT_EQ(storedText(*edit.appended[1].segment), textOfAnEvent("E-1"));
}

TEST(EventListTests, anEditHoldsWhatWasAppended) {
  auto list = listOf(511);
  const auto saved = list;
  append(list, 511, 514);
  const auto edit = list.editFrom(saved);
  EXPECT_FALSE(edit.replacesAll);
  EXPECT_THAT(edit.removed, IsEmpty());
  EXPECT_THAT(appendedOrdinals(edit), ElementsAre(511, 512, 513));
  EXPECT_EQ(storedText(*edit.appended[2].segment), textOfAnEvent("E-513"));
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
  EXPECT_THAT(appendedOrdinals(list.wholeEdit()), ElementsAre(3));
}

TEST(EventListTests, goesOnAfterAnOrdinalThatItWasGiven) {
  EventList list;
  list.append(pending(anEvent("A")), 7);
  list.append(pending(anEvent("B")));
  EXPECT_THAT(appendedOrdinals(list.wholeEdit()), ElementsAre(7, 8));
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
  store.edit("key", list.wholeEdit(), Larder::Durability::survivesKill);
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

TEST(IdFilterTests, tellsEventsApartWhoseHashesAreTheSame) {
  const std::set<std::string> wanted{"A"};
  const IdFilter filter(wanted);
  EXPECT_TRUE(filter.matches(idHash("A"), *pending(anEvent("A"))));
  EXPECT_FALSE(filter.matches(idHash("A"), *pending(anEvent("B"))));
}

TEST(IdFilterTests, passesOverHashesThatItDoesNotKnow) {
  const std::set<std::string> wanted{"A"};
  const IdFilter filter(wanted);
  const std::uint64_t sieveSize = 1 << 16;
  EXPECT_FALSE(filter.mayHold(idHash("A") + 1));
  EXPECT_TRUE(filter.mayHold(idHash("A") + sieveSize));
  EXPECT_FALSE(filter.matches(idHash("A") + sieveSize, *pending(anEvent("A"))));
}

}  // namespace
}  // namespace kite::test
