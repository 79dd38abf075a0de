#include "Profile/ChangedKeys.h"

#include <gmock/gmock.h>

namespace kite {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Object = JSONValue::Object;

TEST(ChangedKeysTests, aKeyThatAppearsOrDisappearsOrDiffersIsUpdated) {
  const auto changed = extractChangedKeysFromDictionaries(
      {{"differs", 1}, {"disappears", 1}}, {{"appears", 1}, {"differs", 2}},
      {{"appears", 1}, {"differs", 2}, {"disappears", 1}});
  EXPECT_THAT(changed.updatedKeys, ElementsAre("appears", "differs", "disappears"));
  EXPECT_THAT(changed.lostKeys, IsEmpty());
}

TEST(ChangedKeysTests, aKeyThatKeepsItsValueIsNeitherUpdatedNorLost) {
  EXPECT_EQ(extractChangedKeysFromDictionaries({{"a", 1}}, {{"a", 1}}, {{"a", 2}}), ChangedKeys{});
}

TEST(ChangedKeysTests, anIntegerThatBecomesTheEqualRealIsUpdated) {
  const auto changed = extractChangedKeysFromDictionaries({{"a", 1}}, {{"a", 1.0}}, {{"a", 1.0}});
  EXPECT_THAT(changed.updatedKeys, ElementsAre("a"));
}

TEST(ChangedKeysTests, onlyKeysOfTheNewDataCount) {
  EXPECT_EQ(extractChangedKeysFromDictionaries({{"a", 1}}, {{"a", 2}}, {}), ChangedKeys{});
}

TEST(ChangedKeysTests, aKeyThatEndsUpNowhereIsLost) {
  const auto changed = extractChangedKeysFromDictionaries({}, {}, {{"a", 1}, {"b", Object{}}});
  EXPECT_THAT(changed.lostKeys, ElementsAre("a", "b"));
  EXPECT_THAT(changed.updatedKeys, IsEmpty());
}

TEST(ChangedKeysTests, nestedChangesReadAsDottedPaths) {
  const Object before{{"a", Object{{"b", Object{{"c", 1}, {"d", 1}}}}}};
  const Object after{{"a", Object{{"b", Object{{"c", 2}, {"d", 1}}}}}};
  const auto changed = extractChangedKeysFromDictionaries(
      before, after, {{"a", Object{{"b", Object{{"c", 2}, {"lost", 1}}}}}});
  EXPECT_THAT(changed.updatedKeys, ElementsAre("a.b.c"));
  EXPECT_THAT(changed.lostKeys, ElementsAre("a.b.lost"));
}

TEST(ChangedKeysTests, nestedKeysKeepTheOrderOfTheirParents) {
  const Object before{{"a", Object{{"x", 1}}}, {"b", 1}};
  const Object after{{"a", Object{{"x", 2}}}, {"b", 2}};
  EXPECT_THAT(extractChangedKeysFromDictionaries(before, after, after).updatedKeys,
              ElementsAre("a.x", "b"));
}

TEST(ChangedKeysTests, anObjectThatReplacesAnotherKindIsUpdatedAsAWhole) {
  const auto changed = extractChangedKeysFromDictionaries(
      {{"a", "text"}}, {{"a", Object{{"x", 1}}}}, {{"a", Object{{"x", 1}}}});
  EXPECT_THAT(changed.updatedKeys, ElementsAre("a"));
}

TEST(ChangedKeysTests, anObjectThatTheStoreKeptAsAnotherKindIsUpdatedEvenWhenItDidNotChange) {
  const auto changed = extractChangedKeysFromDictionaries({{"a", "text"}}, {{"a", "text"}},
                                                          {{"a", Object{{"x", 1}}}});
  EXPECT_THAT(changed.updatedKeys, ElementsAre("a"));
}

TEST(ChangedKeysTests, aNullThatIsStoredIsAValueLikeAnyOther) {
  EXPECT_THAT(extractChangedKeysFromDictionaries({}, {{"a", Null{}}}, {{"a", Null{}}}).updatedKeys,
              ElementsAre("a"));
  EXPECT_EQ(extractChangedKeysFromDictionaries({{"a", Null{}}}, {{"a", Null{}}}, {{"a", Null{}}}),
            ChangedKeys{});
}

}  // namespace
}  // namespace kite
