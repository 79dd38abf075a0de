#include "Install/InstallManagerImpl.h"

#include "Profile/UserInfo.h"
#include "Support/CatchFatalErrors.h"
#include "Support/FakeEventManager.h"
#include "Support/FakeSystem.h"
#include "Support/FakeUsher.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/InMemorySecretsStorage.h"
#include "Support/KeyedArchive.h"
#include "Support/ParsedJSON.h"
#include "Support/WatchedSecretsStorage.h"

#include <gmock/gmock.h>

#include <limits>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Usher::CreationType;

constexpr auto installKey = "Kite-Install-Manager";
constexpr auto legacyRecordKey = "VLInstallManager";

class InstallManagerImplTests : public testing::Test {
 protected:
  FakeSystem system{Date{5000.5}};
  std::shared_ptr<InMemoryKVStorage> keyValues = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<InMemorySecretsStorage> secrets = std::make_shared<InMemorySecretsStorage>();
  std::shared_ptr<Larder::SecretsStorage> secretsStorage = secrets;
  std::shared_ptr<FakeUsher> usher = std::make_shared<FakeUsher>();
  std::shared_ptr<FakeEventManager> events = std::make_shared<FakeEventManager>();
  bool installedBeforeKite = false;
  std::optional<Date> folderCreation;
  Date now{1000.5};
  InstallManagerImpl manager{system.system()};

  /// Runs version 2.0 (200); the injected clock says 1000.5, the system's 5000.5.
  void start() {
    manager.start({.kvStorage = keyValues,
                   .secretsStorage = secretsStorage,
                   .idProvider = usher,
                   .currentAppVersion = "2.0",
                   .currentBundleVersion = "200",
                   .eventManager = events,
                   .installedBeforeKite = installedBeforeKite,
                   .fileManager = {
                       .urlsForDirectory = [](int, int) { return std::vector<std::string>{"/d"}; },
                       .attributesOfItem =
                           [this](const std::string&) {
                             return std::optional(FileAttributes{folderCreation});
                           }},
                   .now = [this] { return now; }});
  }
  void startFresh() {
    usher->setCreationTypes(CreationType::justGenerated, CreationType::justGenerated);
    start();
  }

  std::vector<InstallPayload> installs() { return events->all<InstallPayload>(); }
  InstallPayload theInstall() {
    const auto payloads = installs();
    EXPECT_THAT(payloads, SizeIs(1));
    return payloads.at(0);
  }
  void putBoth(const std::string& json) {
    keyValues->put(installKey, json);
    secrets->put(installKey, json);
  }
  JSONValue::Object userInfo() { return UserInfoStore::userInfo(*secrets)->data; }
};

TEST_F(InstallManagerImplTests, aFreshInstallIsReportedOnceWithoutOldVersions) {
  startFresh();
  EXPECT_EQ(theInstall(), (InstallPayload{.id = FakeSystem::uuid(1),
                                          .timestamp = 5000.5,
                                          .installedBeforeKite = false,
                                          .keychainStatus = CreationType::justGenerated,
                                          .userdefaultStatus = CreationType::justGenerated,
                                          .oldBundleVersion = std::nullopt,
                                          .oldAppVersion = std::nullopt,
                                          .newAppVersion = "2.0",
                                          .documentDirectoryCreationTimestamp = std::nullopt}));
}

TEST_F(InstallManagerImplTests, aFreshInstallIsRememberedInBothStores) {
  startFresh();
  const auto expected = parsed(R"({"firstInstallTimestamp": 1000.5, "installedBeforeKite": false,
                                   "appVersion": "2.0", "bundleVersion": "200"})");
  EXPECT_EQ(parsed(keyValues->text(installKey)), expected);
  EXPECT_EQ(parsed(secrets->text(installKey)), expected);
}

TEST_F(InstallManagerImplTests, theTimeOfAnInstallIsTheSystemsAndTheFirstInstallsTheInjectedOne) {
  startFresh();
  EXPECT_EQ(theInstall().timestamp, 5000.5);
  EXPECT_EQ(manager.ssInfo().firstInstallTimestamp, std::optional(1000.5));
}

TEST_F(InstallManagerImplTests, anInstallMovesTheVersionsOfTheUserInfo) {
  UserInfoStore::updateUserInfo(*secrets, {{"app_version", "1.0"}, {"country", "NZ"}});
  startFresh();
  EXPECT_EQ(userInfo(), parsedObject(R"({"app_version": "2.0", "bundle_version": "200",
                                         "installed_before_kite": false, "country": "NZ"})"));
}

TEST_F(InstallManagerImplTests, aRecordThatDoesNotEncodeIsSilentlyNotStored) {
  putBoth(R"({"appVersion": "1.0"})");
  now.secondsSince1970 = std::numeric_limits<double>::infinity();
  startFresh();
  EXPECT_EQ(theInstall().oldAppVersion, "1.0");
  EXPECT_EQ(keyValues->text(installKey), R"({"appVersion": "1.0"})");
  EXPECT_EQ(secrets->text(installKey), R"({"appVersion": "1.0"})");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(InstallManagerImplTests, aLegacyRecordThatDoesNotEncodeIsSilentlyNotStored) {
  keyValues->writePropertyList(legacyRecordKey,
                               propertyList({{"Install-Timestamp", "<real>inf</real>"},
                                             {"Last-App-Version", "<string>2.0</string>"}}));
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::nullopt);
  EXPECT_EQ(manager.kvInfo().firstInstallTimestamp, 1000.5);
}

TEST_F(InstallManagerImplTests, everythingIsStoredBeforeTheEventIsSent) {
  bool wasStored = false;
  events->onTrack = [&] {
    wasStored = keyValues->contains(installKey) && secrets->contains(installKey) &&
                userInfo().contains("installed_before_kite");
  };
  startFresh();
  EXPECT_TRUE(wasStored);
}

TEST_F(InstallManagerImplTests, theRecordsAreWrittenBetweenTheTwoWritesOfTheUserInfo) {
  UserInfoStore::userInfo(*secrets);
  std::vector<std::string> writes;
  secretsStorage = std::make_shared<WatchedSecretsStorage>(secrets, [&](const auto& operation) {
    if (!operation.starts_with("write")) return;
    writes.push_back(operation + (keyValues->contains(installKey) ? ", key-values written" : ""));
  });
  startFresh();
  EXPECT_THAT(writes,
              ElementsAre("write Kite-User-Info", "write Kite-Install-Manager, key-values written",
                          "write Kite-User-Info, key-values written"));
}

TEST_F(InstallManagerImplTests, theUserInfoIsWrittenTwice) {
  UserInfoStore::userInfo(*secrets);
  const auto before = secrets->writes();
  startFresh();
  EXPECT_EQ(secrets->writes() - before, 3) << "twice the user info and once the record";
}

TEST_F(InstallManagerImplTests, aReinstallationTakesTheOldVersionsFromTheSecrets) {
  secrets->put(installKey, R"({"firstInstallTimestamp": 7.0, "installedBeforeKite": false,
                        "appVersion": "1.0", "bundleVersion": "100"})");
  usher->setCreationTypes(CreationType::justGenerated, CreationType::readFromFile);
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::optional<std::string>("1.0"));
  EXPECT_EQ(theInstall().oldBundleVersion, std::optional<std::string>("100"));
  EXPECT_EQ(theInstall().keychainStatus, CreationType::readFromFile);
  EXPECT_EQ(theInstall().userdefaultStatus, CreationType::justGenerated);
  EXPECT_EQ(manager.kvInfo().firstInstallTimestamp, std::optional(7.0));
}

TEST_F(InstallManagerImplTests, aRelaunchOfTheSameVersionSendsAndWritesNothing) {
  putBoth(R"({"appVersion": "2.0", "bundleVersion": "100"})");
  start();
  EXPECT_THAT(installs(), IsEmpty());
  EXPECT_EQ(keyValues->writes(), 0);
  EXPECT_EQ(secrets->writes(), 0);
}

TEST_F(InstallManagerImplTests, anotherBundleVersionAloneIsNoUpdate) {
  putBoth(R"({"appVersion": "2.0", "bundleVersion": "1"})");
  start();
  EXPECT_THAT(installs(), IsEmpty());
  EXPECT_EQ(manager.kvInfo().bundleVersion, std::optional<std::string>("1"));
}

TEST_F(InstallManagerImplTests, aChangeOfVersionIsAnUpdate) {
  putBoth(R"({"firstInstallTimestamp": 7.0, "appVersion": "1.0", "bundleVersion": "100"})");
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::optional<std::string>("1.0"));
  EXPECT_EQ(theInstall().oldBundleVersion, std::optional<std::string>("100"));
  EXPECT_EQ(theInstall().newAppVersion, "2.0");
  EXPECT_EQ(manager.ssInfo().appVersion, std::optional<std::string>("2.0"));
  EXPECT_EQ(manager.ssInfo().firstInstallTimestamp, std::optional(7.0));
}

TEST_F(InstallManagerImplTests, versionsAreComparedAsTexts) {
  putBoth(R"({"appVersion": "2.00"})");
  start();
  EXPECT_THAT(installs(), SizeIs(1));
}

TEST_F(InstallManagerImplTests, anIdentifierThatWasNotReadFromFileMeansAnInstallation) {
  using enum CreationType;
  for (const auto& [userDefaults, keychain, expected] :
       std::vector<std::tuple<CreationType, CreationType, std::size_t>>{
           {readFromFile, readFromFile, 0},
           {readFromFile, justGenerated, 1},
           {readFromFile, notApplicable, 1},
           {justGenerated, readFromFile, 1},
           {notApplicable, readFromFile, 1}}) {
    putBoth(R"({"appVersion": "2.0"})");
    events->forget();
    usher->setCreationTypes(userDefaults, keychain);
    start();
    EXPECT_THAT(installs(), SizeIs(expected));
  }
}

TEST_F(InstallManagerImplTests, withoutAnOldVersionItIsAnInstallation) {
  putBoth(R"({"bundleVersion": "200"})");
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::nullopt);
}

TEST_F(InstallManagerImplTests, theSecretsAnswerBeforeTheKeyValues) {
  secrets->put(installKey, R"({"firstInstallTimestamp": 1.0, "installedBeforeKite": true,
                        "appVersion": "s", "bundleVersion": "sb"})");
  keyValues->put(installKey, R"({"firstInstallTimestamp": 2.0, "installedBeforeKite": false,
                          "appVersion": "k", "bundleVersion": "kb"})");
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::optional<std::string>("s"));
  EXPECT_EQ(theInstall().oldBundleVersion, std::optional<std::string>("sb"));
  EXPECT_TRUE(theInstall().installedBeforeKite);
  EXPECT_EQ(manager.kvInfo().firstInstallTimestamp, std::optional(1.0));
}

TEST_F(InstallManagerImplTests, theKeyValuesAnswerWhereTheSecretsAreSilent) {
  secrets->put(installKey, "{}");
  keyValues->put(installKey, R"({"firstInstallTimestamp": 2.0, "installedBeforeKite": true,
                          "appVersion": "k", "bundleVersion": "kb"})");
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::optional<std::string>("k"));
  EXPECT_EQ(theInstall().oldBundleVersion, std::optional<std::string>("kb"));
  EXPECT_TRUE(theInstall().installedBeforeKite);
  EXPECT_EQ(manager.ssInfo().firstInstallTimestamp, std::optional(2.0));
}

TEST_F(InstallManagerImplTests, aStoredFalseAnswersBeforeTheHost) {
  putBoth(R"({"installedBeforeKite": false, "appVersion": "1.0"})");
  installedBeforeKite = true;
  start();
  EXPECT_FALSE(theInstall().installedBeforeKite);
}

TEST_F(InstallManagerImplTests, theHostAnswersWhereNothingIsStored) {
  installedBeforeKite = true;
  startFresh();
  EXPECT_TRUE(theInstall().installedBeforeKite);
  EXPECT_EQ(manager.kvInfo().installedBeforeKite, std::optional(true));
  EXPECT_EQ(*userInfo().at("installed_before_kite"), JSONValue(true));
}

TEST_F(InstallManagerImplTests, theDocumentDirectorysAgeGoesWithTheEvent) {
  folderCreation = Date{77.25};
  startFresh();
  EXPECT_EQ(theInstall().documentDirectoryCreationTimestamp, std::optional(77.25));
}

TEST_F(InstallManagerImplTests, theLegacyRecordsAreMigratedBeforeTheDecision) {
  secrets->put(legacyRecordKey, keyedArchive({{"Last-App-Version", "<string>1.0</string>"},
                                              {"Install-Timestamp", "<real>7.5</real>"},
                                              {"Installed-Before-Kite", "<true/>"}}));
  keyValues->writePropertyList(legacyRecordKey,
                               propertyList({{"Last-App-Version", "<string>0.9</string>"}}));
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::optional<std::string>("1.0"));
  EXPECT_EQ(theInstall().oldBundleVersion, std::nullopt);
  EXPECT_TRUE(theInstall().installedBeforeKite);
  EXPECT_EQ(manager.ssInfo().firstInstallTimestamp, std::optional(7.5));
}

TEST_F(InstallManagerImplTests, legacyRecordsMoveIntoTheirOwnStoreAndStayInPlace) {
  const auto archive = keyedArchive({{"Last-App-Version", "<string>2.0</string>"}});
  secrets->put(legacyRecordKey, archive);
  const auto list = propertyList({{"Install-Timestamp", "<real>3.5</real>"}});
  keyValues->writePropertyList(legacyRecordKey, list);
  start();
  EXPECT_THAT(installs(), IsEmpty()) << "the migrated version is the current one";
  EXPECT_EQ(parsed(secrets->text(installKey)), parsed(R"({"appVersion": "2.0"})"));
  EXPECT_EQ(parsed(keyValues->text(installKey)), parsed(R"({"firstInstallTimestamp": 3.5})"));
  EXPECT_EQ(secrets->text(legacyRecordKey), archive);
  EXPECT_EQ(keyValues->readPropertyList(legacyRecordKey), list);
}

TEST_F(InstallManagerImplTests, aCurrentRecordIsNotTouchedByTheLegacyOne) {
  putBoth(R"({"appVersion": "2.0"})");
  secrets->put(legacyRecordKey, keyedArchive({{"Last-App-Version", "<string>1.0</string>"}}));
  keyValues->writePropertyList(legacyRecordKey,
                               propertyList({{"Last-App-Version", "<string>1.0</string>"}}));
  start();
  EXPECT_EQ(secrets->text(installKey), R"({"appVersion": "2.0"})");
  EXPECT_EQ(keyValues->text(installKey), R"({"appVersion": "2.0"})");
}

TEST_F(InstallManagerImplTests, aCurrentRecordThatDoesNotDecodeIsReplacedByTheLegacyOne) {
  putBoth(R"({"appVersion": 2})");
  keyValues->writePropertyList(legacyRecordKey,
                               propertyList({{"Last-App-Version", "<string>2.0</string>"}}));
  start();
  EXPECT_EQ(keyValues->text(installKey), R"({"appVersion":"2.0"})");
}

TEST_F(InstallManagerImplTests, aCurrentSecretThatDoesNotDecodeIsReplacedByTheLegacyOne) {
  putBoth(R"({"appVersion": 2})");
  secrets->put(legacyRecordKey, keyedArchive({{"Last-App-Version", "<string>2.0</string>"}}));
  start();
  EXPECT_EQ(secrets->text(installKey), R"({"appVersion":"2.0"})");
  EXPECT_EQ(keyValues->text(installKey), R"({"appVersion": 2})");
}

TEST_F(InstallManagerImplTests, aLegacyArchiveThatCannotBeReadMigratesNothing) {
  secrets->put(legacyRecordKey, "no archive");
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::nullopt);
}

TEST_F(InstallManagerImplTests, aLegacyPropertyListThatCannotBeReadMigratesNothing) {
  keyValues->writePropertyList(legacyRecordKey, {"no property list"});
  secrets->put(installKey, R"({"appVersion": "2.0"})");
  start();
  EXPECT_FALSE(keyValues->contains(installKey));
}

TEST_F(InstallManagerImplTests, anEmptyLegacyDictionaryMakesAnEmptyRecord) {
  keyValues->writePropertyList(legacyRecordKey, propertyList({}));
  secrets->put(installKey, R"({"appVersion": "2.0"})");
  start();
  EXPECT_EQ(keyValues->text(installKey), "{}");
}

TEST_F(InstallManagerImplTests, theVersionOfTheLegacyUserInfoIsTheLastResort) {
  secrets->put("USUserInfo", keyedArchive({{"app_version", "<string>0.5</string>"}}));
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::optional<std::string>("0.5"));
}

TEST_F(InstallManagerImplTests, aStoredVersionAnswersBeforeTheLegacyUserInfo) {
  secrets->put("USUserInfo", keyedArchive({{"app_version", "<string>0.5</string>"}}));
  keyValues->put(installKey, R"({"appVersion": "1.0"})");
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::optional<std::string>("1.0"));
}

TEST_F(InstallManagerImplTests, aVersionOfTheLegacyUserInfoThatIsNoTextIsIgnored) {
  secrets->put("USUserInfo", keyedArchive({{"app_version", "<integer>2</integer>"}}));
  start();
  EXPECT_EQ(theInstall().oldAppVersion, std::nullopt);
}

TEST_F(InstallManagerImplTests, withoutARecordEveryFieldIsAbsent) {
  putBoth("{}");
  start();
  events->forget();
  keyValues->remove(installKey);
  secrets->remove(installKey);
  EXPECT_EQ(manager.kvInfo(), StoredInformations{});
  EXPECT_EQ(manager.ssInfo(), StoredInformations{});
}

TEST_F(InstallManagerImplTests, everyOperationButStartStopsTheProcessBeforeStart) {
  EXPECT_FATAL(manager.ssInfo(), "Call start before using the InstallManager");
  EXPECT_FATAL(manager.kvInfo(), "Call start before using the InstallManager");
}

TEST_F(InstallManagerImplTests, useBeforeStartIsReportedFromItsFixedPlace) {
  const auto raised = fatalErrorOf([&] { static_cast<void>(manager.ssInfo()); });
  ASSERT_TRUE(raised);
  EXPECT_STREQ(raised->where.file, "Kite/InstallManagerImpl");
}

}  // namespace
}  // namespace kite::test
