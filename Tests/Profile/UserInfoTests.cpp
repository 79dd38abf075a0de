#include "Profile/UserInfo.h"

#include <Kite/Platform/LegacyArchive.h>

#include "Support/CatchFatalErrors.h"
#include "Support/InMemorySecretsStorage.h"
#include "Support/KeyedArchive.h"
#include "Support/ParsedJSON.h"
#include "Support/WatchedSecretsStorage.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using Object = JSONValue::Object;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto userInfoKey = "Kite-User-Info";
constexpr auto legacyKey = "USUserInfo";

class UserInfoTests : public testing::Test {
 protected:
  std::shared_ptr<InMemorySecretsStorage> memory = std::make_shared<InMemorySecretsStorage>();
  InMemorySecretsStorage& secrets = *memory;

  void store(std::string_view data) {
    secrets.put(userInfoKey, R"({"data": )" + std::string(data) + "}");
  }
  Object stored() { return *parsedObject(secrets.text(userInfoKey)).at("data")->object(); }
};

TEST_F(UserInfoTests, isStoredAsAnObjectWithItsDataUnderOneKey) {
  UserInfoStore::updateUserInfo(secrets, {{"a", 1}});
  EXPECT_EQ(secrets.text(userInfoKey), R"({"data":{"a":1}})");
}

TEST_F(UserInfoTests, isReadFromItsKey) {
  store(R"({"a": 1, "b": null})");
  EXPECT_EQ(UserInfoStore::userInfo(secrets)->data, (Object{{"a", 1}, {"b", nullptr}}));
}

TEST_F(UserInfoTests, isTheSameObjectUntilItChanges) {
  store(R"({"a": 1})");
  const auto first = UserInfoStore::userInfo(secrets);
  EXPECT_EQ(UserInfoStore::userInfo(secrets), first);
  UserInfoStore::updateUserInfo(secrets, {{"a", 2}});
  EXPECT_NE(UserInfoStore::userInfo(secrets), first);
}

TEST_F(UserInfoTests, isTheSameObjectFromTheMigrationOn) {
  EXPECT_EQ(UserInfoStore::userInfo(secrets), UserInfoStore::userInfo(secrets));
}

TEST_F(UserInfoTests, anUpdateWinsKeyByKeyAndKeepsTheOthers) {
  store(R"({"app_version": "1.0", "country": "NZ"})");
  const auto result = UserInfoStore::updateUserInfo(secrets, {{"app_version", "2.0"}});
  EXPECT_EQ(result, (Object{{"app_version", "2.0"}, {"country", "NZ"}}));
  EXPECT_EQ(stored(), result);
}

TEST_F(UserInfoTests, anUpdateReplacesAnObjectWhole) {
  store(R"({"monetization": {"plan": "a", "trial": true}})");
  UserInfoStore::updateUserInfo(secrets, {{"monetization", Object{{"plan", "b"}}}});
  EXPECT_EQ(stored(), parsedObject(R"({"monetization": {"plan": "b"}})"));
}

TEST_F(UserInfoTests, anUpdateKeepsNulls) {
  EXPECT_EQ(UserInfoStore::updateUserInfo(secrets, {{"a", nullptr}}), (Object{{"a", nullptr}}));
}

TEST_F(UserInfoTests, anUpdateThatDoesNotEncodeAnswersWhatIsStored) {
  store(R"({"a": 1})");
  const auto infinite = std::numeric_limits<double>::infinity();
  EXPECT_EQ(UserInfoStore::updateUserInfo(secrets, {{"a", infinite}}), (Object{{"a", 1}}));
  EXPECT_EQ(stored(), (Object{{"a", 1}}));
}

TEST_F(UserInfoTests, deletesOneKey) {
  store(R"({"a": 1, "b": 2})");
  UserInfoStore::deleteKey(secrets, "a");
  EXPECT_EQ(stored(), (Object{{"b", 2}}));
}

TEST_F(UserInfoTests, deletingAnUnknownKeyKeepsTheRest) {
  store(R"({"b": 2})");
  UserInfoStore::deleteKey(secrets, "a");
  EXPECT_EQ(stored(), (Object{{"b", 2}}));
}

TEST_F(UserInfoTests, deletingAnUnknownKeyWritesAllTheSame) {
  store(R"({"b": 2})");
  UserInfoStore::deleteKey(secrets, "a");
  EXPECT_EQ(secrets.writes(), 1);
}

TEST_F(UserInfoTests, deletingTheDeviceNameLeavesTheDevicesOtherMembers) {
  store(R"({"device_name": "Ann's phone", "device": {"name": "Ann's phone", "model": "Phone"}})");
  UserInfoStore::deleteDeviceName(secrets);
  EXPECT_EQ(stored(), parsedObject(R"({"device": {"model": "Phone"}})"));
}

TEST_F(UserInfoTests, aDeviceThatIsNoObjectIsLeftAlone) {
  store(R"({"device_name": "Ann's phone", "device": "name"})");
  UserInfoStore::deleteDeviceName(secrets);
  EXPECT_EQ(stored(), parsedObject(R"({"device": "name"})"));
}

TEST_F(UserInfoTests, deletingTheDeviceNameWithoutADeviceAddsNone) {
  store(R"({"a": 1})");
  UserInfoStore::deleteDeviceName(secrets);
  EXPECT_EQ(stored(), (Object{{"a", 1}}));
}

TEST_F(UserInfoTests, anIntegralBundleVersionBecomesItsDecimalText) {
  store(R"({"bundle_version": 120, "a": 1})");
  UserInfoStore::ensureBundleVersionIsString(secrets);
  EXPECT_EQ(stored(), (Object{{"bundle_version", "120"}, {"a", 1}}));
  store(R"({"bundle_version": -9223372036854775808})");
  UserInfoStore::ensureBundleVersionIsString(secrets);
  EXPECT_EQ(stored(), (Object{{"bundle_version", "-9223372036854775808"}}));
}

class RealBundleVersions : public UserInfoTests {
 protected:
  std::string repaired(const std::string& number) {
    store(R"({"bundle_version": )" + number + "}");
    UserInfoStore::ensureBundleVersionIsString(secrets);
    return *stored().at("bundle_version")->string();
  }
};

TEST_F(RealBundleVersions, becomeTheShortestTextThatReadsBackAsTheSameNumber) {
  EXPECT_EQ(repaired("12.5"), "12.5");
  EXPECT_EQ(repaired("0.1"), "0.1");
  EXPECT_EQ(repaired("-3.25"), "-3.25");
  EXPECT_EQ(std::stod(repaired("1.7976931348623157e308")), 1.7976931348623157e308);
  EXPECT_EQ(std::stod(repaired("2.5e-300")), 2.5e-300);
}

TEST_F(RealBundleVersions, keepATrailingPointZeroWhenTheyAreIntegral) {
  EXPECT_EQ(repaired("12.0"), "12.0");
  EXPECT_EQ(repaired("100000.0"), "100000.0");
  EXPECT_EQ(repaired("0.0"), "0.0");
}

TEST_F(RealBundleVersions, thatAreNotFiniteBecomeTheirShortestText) {
  secrets.put(legacyKey, keyedArchive({{"bundle_version", "<real>inf</real>"}}));
  UserInfoStore::ensureBundleVersionIsString(secrets);
  EXPECT_EQ(stored(), (Object{{"bundle_version", "inf"}}));
}

TEST_F(UserInfoTests, aBundleVersionThatIsNoNumberIsLeftAloneWithoutAWrite) {
  for (const auto* data : {R"({"bundle_version": "120"})", R"({"bundle_version": true})",
                           R"({"bundle_version": null})", R"({"a": 1})"}) {
    store(data);
    UserInfoStore::ensureBundleVersionIsString(secrets);
    EXPECT_EQ(stored(), parsedObject(data));
  }
  EXPECT_EQ(secrets.writes(), 0);
}

TEST_F(UserInfoTests, itsOperationsMayBeNestedInALockOfTheCallers) {
  const std::scoped_lock guard(secrets);
  UserInfoStore::updateUserInfo(secrets, {{"a", 1}, {"b", 2}});
  UserInfoStore::deleteKey(secrets, "b");
  EXPECT_EQ(UserInfoStore::userInfo(secrets)->data, (Object{{"a", 1}}));
}

TEST_F(UserInfoTests, deletionsOfSeveralThreadsAreAllKept) {
  Object data{{"kept", 1}};
  for (int i = 0; i < 200; ++i) data.insertOrAssign(std::to_string(i), i);
  UserInfoStore::updateUserInfo(secrets, data);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([this, i] {
      for (int key = i; key < 200; key += 4) UserInfoStore::deleteKey(secrets, std::to_string(key));
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(stored(), (Object{{"kept", 1}}));
}

/// What an operation does with the store, in order.
class UserInfoMonitor : public UserInfoTests {
 protected:
  std::vector<std::string> operations;
  std::function<void()> beforeWrite = [] {};
  WatchedSecretsStorage watched{memory, [this](const std::string& operation) {
                                  operations.push_back(operation);
                                  if (operation == "write Kite-User-Info")
                                    std::exchange(beforeWrite, [] {})();
                                }};

  void SetUp() override { store(R"({"device": {"name": "x"}, "bundle_version": 1})"); }
};

TEST_F(UserInfoMonitor, isHeldByARead) {
  UserInfoStore::userInfo(watched);
  EXPECT_THAT(operations, ElementsAre("lock", "read Kite-User-Info", "unlock"));
}

TEST_F(UserInfoMonitor, isHeldByAnUpdateToReadAndToReadAgainButNotToWrite) {
  UserInfoStore::updateUserInfo(watched, {{"a", 1}});
  EXPECT_THAT(operations, ElementsAre("lock", "read Kite-User-Info", "unlock",  //
                                      "write Kite-User-Info",                   //
                                      "lock", "read Kite-User-Info", "unlock"));
}

TEST_F(UserInfoMonitor, isHeldFromReadToWriteByEverythingElse) {
  const auto expectOneTurn = [this] {
    EXPECT_EQ(std::ranges::count(operations, "lock"), 1);
    EXPECT_EQ(operations.front(), "lock");
    EXPECT_EQ(operations.back(), "unlock");
    EXPECT_GE(std::ranges::count(operations, "write Kite-User-Info"), 1);
    operations.clear();
  };
  UserInfoStore::deleteKey(watched, "a");
  expectOneTurn();
  UserInfoStore::ensureBundleVersionIsString(watched);
  expectOneTurn();
  secrets.remove(userInfoKey);
  UserInfoStore::userInfo(watched);
  expectOneTurn();
}

TEST_F(UserInfoMonitor, isLeftBetweenTheTwoPlacesOfTheDeviceName) {
  UserInfoStore::deleteDeviceName(watched);
  EXPECT_THAT(operations,
              ElementsAre("lock", "read Kite-User-Info", "write Kite-User-Info", "unlock",  //
                          "lock", "read Kite-User-Info", "write Kite-User-Info", "unlock"));
}

TEST_F(UserInfoMonitor, doesNotKeepAnUpdateFromOverwritingOneThatCameMeanwhile) {
  store(R"({"a": 1})");
  beforeWrite = [this] { UserInfoStore::updateUserInfo(secrets, {{"meanwhile", 2}}); };
  EXPECT_EQ(UserInfoStore::updateUserInfo(watched, {{"b", 3}}), (Object{{"a", 1}, {"b", 3}}));
  EXPECT_EQ(stored(), (Object{{"a", 1}, {"b", 3}}));
}

TEST_F(UserInfoTests, withoutAnyLegacyDataAnEmptyUserInfoIsStored) {
  EXPECT_THAT(UserInfoStore::userInfo(secrets)->data, IsEmpty());
  EXPECT_EQ(secrets.text(userInfoKey), R"({"data":{}})");
}

class UserInfoMigration : public UserInfoTests {
 protected:
  void leave(const std::vector<ArchivedEntry>& entries) {
    secrets.put(legacyKey, keyedArchive(entries));
  }
  Object migrated(const std::vector<ArchivedEntry>& entries) {
    leave(entries);
    return UserInfoStore::userInfo(secrets)->data;
  }
};

TEST_F(UserInfoMigration, gathersFlatExperimentsUnderOneKey) {
  EXPECT_EQ(migrated({{"experiment_color", "<string>red</string>"},
                      {"experiment_size", "<integer>3</integer>"},
                      {"age", "<integer>42</integer>"}}),
            parsedObject(R"({"experiment": {"color": "red", "size": 3}, "age": 42})"));
}

TEST_F(UserInfoMigration, storesItsResultAndLeavesTheLegacyEntryInPlace) {
  leave({{"age", "<integer>42</integer>"}});
  const auto archive = secrets.text(legacyKey);
  UserInfoStore::userInfo(secrets);
  EXPECT_EQ(secrets.text(userInfoKey), R"({"data":{"age":42}})");
  EXPECT_EQ(secrets.text(legacyKey), archive);
}

TEST_F(UserInfoMigration, happensOnce) {
  leave({{"age", "<integer>42</integer>"}});
  UserInfoStore::userInfo(secrets);
  leave({{"age", "<integer>43</integer>"}});
  EXPECT_EQ(UserInfoStore::userInfo(secrets)->data, (Object{{"age", 42}}));
}

TEST_F(UserInfoMigration, replacesARecordThatDoesNotDecode) {
  secrets.put(userInfoKey, R"({"data": 1})");
  EXPECT_EQ(migrated({{"age", "<integer>42</integer>"}}), (Object{{"age", 42}}));
  EXPECT_EQ(secrets.text(userInfoKey), R"({"data":{"age":42}})");
}

TEST_F(UserInfoMigration, precedesTheFirstUpdate) {
  leave({{"age", "<integer>42</integer>"}});
  EXPECT_EQ(UserInfoStore::updateUserInfo(secrets, {{"a", 1}}), (Object{{"age", 42}, {"a", 1}}));
}

TEST_F(UserInfoMigration, keepsTheKindsOfTheArchivedObjects) {
  EXPECT_EQ(migrated({{"flag", "<true/>"},
                      {"one", "<integer>1</integer>"},
                      {"half", "<real>0.5</real>"},
                      {"name", "<string>Ann</string>"}}),
            parsedObject(R"({"flag": true, "one": 1, "half": 0.5, "name": "Ann"})"));
}

TEST_F(UserInfoMigration, keepsArchivedDecimalNumbers) {
  // Its class description stands behind it, at the fifth place of the archive.
  const auto decimal = [](const std::string& exponent) {
    return "<dict><key>$class</key><dict><key>CF$UID</key><integer>5</integer></dict>"
           "<key>NS.mantissa</key><data>OTAAAAAAAAAAAAAAAAAAAA==</data>"
           "<key>NS.mantissa.bo</key><integer>1</integer><key>NS.length</key><integer>1</integer>"
           "<key>NS.exponent</key><integer>" +
           exponent +
           "</integer><key>NS.negative</key><false/><key>NS.compact</key><true/></dict>"
           "<dict><key>$classname</key><string>NSDecimalNumber</string></dict>";
  };
  EXPECT_EQ(migrated({{"price", decimal("-2")}}), (Object{{"price", 123.45}}));
  secrets.remove(userInfoKey);
  EXPECT_EQ(migrated({{"price", decimal("0")}}), (Object{{"price", 12345}}));
}

TEST_F(UserInfoMigration, anExperimentReplacesAPlainOneThatCameBeforeAndIsNoObject) {
  EXPECT_EQ(
      migrated({{"experiment", "<string>x</string>"}, {"experiment_a", "<integer>1</integer>"}}),
      parsedObject(R"({"experiment": {"a": 1}})"));
}

/// A dictionary of one entry, whose key and value are the objects at these places of the archive.
std::string archivedDictionary(int key, int value) {
  const auto reference = [](int place) {
    return "<dict><key>CF$UID</key><integer>" + std::to_string(place) + "</integer></dict>";
  };
  constexpr int dictionaryClass = 2;
  return "<dict><key>$class</key>" + reference(dictionaryClass) + "<key>NS.keys</key><array>" +
         reference(key) + "</array><key>NS.objects</key><array>" + reference(value) +
         "</array></dict>";
}

TEST_F(UserInfoMigration, anExperimentJoinsAPlainObjectThatCameBefore) {
  constexpr int size = 5;  // the place of its key; the first entry's is 3
  EXPECT_EQ(migrated({{"experiment", archivedDictionary(size, size + 1)},
                      {"size", "<integer>1</integer>"},
                      {"experiment_color", "<string>red</string>"}}),
            parsedObject(R"({"experiment": {"size": 1, "color": "red"}, "size": 1})"));
}

TEST_F(UserInfoMigration, anExperimentReplacesItsNamesakeInAPlainObjectThatCameBefore) {
  constexpr int size = 5;
  EXPECT_EQ(migrated({{"experiment", archivedDictionary(size, size + 1)},
                      {"size", "<integer>1</integer>"},
                      {"experiment_size", "<integer>2</integer>"}}),
            parsedObject(R"({"experiment": {"size": 2}, "size": 1})"));
}

TEST_F(UserInfoMigration, aPlainExperimentThatComesAfterReplacesTheGatheredOnes) {
  EXPECT_EQ(
      migrated({{"experiment_a", "<integer>1</integer>"}, {"experiment", "<string>x</string>"}}),
      parsedObject(R"({"experiment": "x"})"));
}

TEST_F(UserInfoMigration, aLaterExperimentOfOneNameReplacesTheEarlierOne) {
  EXPECT_EQ(migrated({{"experiment_a", "<integer>1</integer>"},
                      {"experiment_a", "<integer>2</integer>"}}),
            parsedObject(R"({"experiment": {"a": 2}})"));
}

TEST_F(UserInfoMigration, aKeyThatOnlyResemblesAnExperimentIsAPlainOne) {
  EXPECT_EQ(migrated({{"Experiment_a", "<integer>1</integer>"},
                      {"experimental", "<integer>2</integer>"},
                      {"my_experiment_a", "<integer>3</integer>"}}),
            parsedObject(R"({"Experiment_a": 1, "experimental": 2, "my_experiment_a": 3})"));
}

TEST_F(UserInfoMigration, aBarePrefixNamesTheExperimentWithoutAName) {
  EXPECT_EQ(migrated({{"experiment_", "<integer>1</integer>"}}),
            parsedObject(R"({"experiment": {"": 1}})"));
}

TEST_F(UserInfoMigration, whatIsNoArchiveOfADictionaryReadsAsEmpty) {
  secrets.put(legacyKey, "no archive");
  EXPECT_THAT(UserInfoStore::keychainStoredInformation(secrets), IsEmpty());
  EXPECT_THAT(UserInfoStore::userInfo(secrets)->data, IsEmpty());
}

TEST_F(UserInfoMigration, anArchivedDictionaryWithAKeyThatIsNoTextReadsAsEmpty) {
  auto archive = keyedArchive({{"age", "<integer>42</integer>"}, {"KEY", "<true/>"}});
  const std::string key = "<string>KEY</string>";
  archive.replace(archive.find(key), key.size(), "<integer>7</integer>");
  ASSERT_TRUE(LegacyArchive::unarchiveDictionary(archive)) << "the archive itself is sound";
  secrets.put(legacyKey, archive);
  EXPECT_THAT(UserInfoStore::keychainStoredInformation(secrets), IsEmpty());
}

TEST_F(UserInfoMigration, withoutALegacyEntryThereIsNoStoredInformation) {
  EXPECT_THAT(UserInfoStore::keychainStoredInformation(secrets), IsEmpty());
}

TEST_F(UserInfoMigration, aLegacyValueWithoutAJSONFormStopsTheProcess) {
  leave({{"blob", "<data>AAEC</data>"}});
  EXPECT_FATAL(UserInfoStore::userInfo(secrets), "User Info Migration failed");
  EXPECT_FALSE(secrets.contains(userInfoKey));
}

TEST_F(UserInfoMigration, theStoreIsUnlockedAfterAFatalError) {
  leave({{"blob", "<data>AAEC</data>"}});
  EXPECT_FATAL(UserInfoStore::userInfo(secrets), "User Info Migration failed");
  std::thread other([this] { const std::scoped_lock guard(secrets); });
  other.join();
}

TEST_F(UserInfoMigration, aResultThatDoesNotEncodeIsUsedAllTheSame) {
  const auto data = migrated({{"limit", "<real>inf</real>"}});
  EXPECT_FALSE(secrets.contains(userInfoKey));
  EXPECT_TRUE(data.contains("limit"));
}

}  // namespace
}  // namespace kite::test
