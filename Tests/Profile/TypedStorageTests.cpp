#include "Profile/TypedStorage.h"

#include "Profile/TrackingConsent.h"
#include "Profile/UserInfo.h"
#include "Support/InMemoryKVStorage.h"

#include <gtest/gtest.h>

#include <limits>

namespace kite::test {
namespace {

constexpr Larder::Key<TrackingConsent> aKey{"consent"};

class TypedStorageTests : public testing::Test {
 protected:
  InMemoryKVStorage storage;
};

TEST_F(TypedStorageTests, loadsWhatWasSaved) {
  save(storage, aKey, {.analytics = false, .profiling = true});
  ASSERT_TRUE(load(storage, aKey));
  EXPECT_EQ(*load(storage, aKey), (TrackingConsent{.analytics = false, .profiling = true}));
}

TEST_F(TypedStorageTests, anAbsentKeyHoldsNothing) { EXPECT_EQ(load(storage, aKey), nullptr); }

TEST_F(TypedStorageTests, textThatIsNotJSONHoldsNothing) {
  storage.put("consent", "{");
  EXPECT_EQ(load(storage, aKey), nullptr);
}

TEST_F(TypedStorageTests, aRecordOfAnotherShapeHoldsNothing) {
  storage.put("consent", R"({"analytics": 1, "profiling": true})");
  EXPECT_EQ(load(storage, aKey), nullptr);
}

TEST_F(TypedStorageTests, aNativeNumberHoldsNothing) {
  storage.writeNumber("consent", 1);
  EXPECT_EQ(load(storage, aKey), nullptr);
}

TEST_F(TypedStorageTests, anUnchangedRecordIsDecodedOnce) {
  save(storage, aKey, {});
  const auto first = load(storage, aKey);
  EXPECT_EQ(load(storage, aKey), first);
  save(storage, aKey, {});
  EXPECT_NE(load(storage, aKey), first);
}

TEST_F(TypedStorageTests, aRecordThatDoesNotEncodeLeavesTheOldOne) {
  constexpr Larder::Key<UserInfo> info{"info"};
  save(storage, info, {.data = {{"a", 1}}});
  const auto writes = storage.writes();
  save(storage, info, {.data = {{"a", std::numeric_limits<double>::quiet_NaN()}}});
  EXPECT_EQ(storage.writes(), writes);
  EXPECT_EQ(storage.text("info"), R"({"data":{"a":1}})");
}

TEST_F(TypedStorageTests, aRememberedRecordIsTheStoredOne) {
  RememberedRecord<TrackingConsent> remembered;
  EXPECT_EQ(remembered.load(storage, aKey), nullptr);
  save(storage, aKey, {.analytics = false, .profiling = true});
  EXPECT_EQ(remembered.load(storage, aKey), load(storage, aKey));
  save(storage, aKey, {.analytics = true, .profiling = false});
  EXPECT_EQ(remembered.load(storage, aKey), load(storage, aKey));
  storage.remove("consent");
  EXPECT_EQ(remembered.load(storage, aKey), nullptr);
}

TEST_F(TypedStorageTests, aRememberedRecordIsTheSameUntilTheStoreChanges) {
  RememberedRecord<TrackingConsent> remembered;
  save(storage, aKey, {});
  const auto record = remembered.load(storage, aKey);
  EXPECT_EQ(remembered.load(storage, aKey), record);
  save(storage, aKey, {});
  EXPECT_NE(remembered.load(storage, aKey), record);
}

}  // namespace
}  // namespace kite::test
