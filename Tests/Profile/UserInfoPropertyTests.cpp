#include "Profile/UserInfo.h"
#include "Support/AnyJSON.h"
#include "Support/InMemorySecretsStorage.h"
#include "Support/KeyedArchive.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace kite::test {
namespace {

using PlainMap = std::map<std::string, JSONValue>;

const std::vector<std::string>& profileKeys() {
  static const std::vector<std::string> keys{"a", "device_name", "device", "name",
                                             "bundle_version"};
  return keys;
}

JSONValue::Object objectOf(const PlainMap& model) {
  JSONValue::Object object;
  for (const auto& [key, value] : model) object.insertOrAssign(key, value);
  return object;
}

/// The user info in a store, and what a plain map makes of the same operations.
struct ModelledUserInfo {
  InMemorySecretsStorage secrets;
  PlainMap model;

  void update(const JSONValue::Object& data) {
    for (const auto& [key, value] : data) model.insert_or_assign(key, value);
    RC_ASSERT(UserInfoStore::updateUserInfo(secrets, data) == objectOf(model));
  }
  void deleteKey(const std::string& key) {
    model.erase(key);
    UserInfoStore::deleteKey(secrets, key);
  }
  void deleteDeviceName() {
    model.erase("device_name");
    if (const auto device = model.find("device");
        device != model.end() && device->second.object()) {
      auto members = *device->second.object();
      members.erase("name");
      device->second = std::move(members);
    }
    UserInfoStore::deleteDeviceName(secrets);
  }
  void ensureBundleVersionIsString() {
    static const std::vector<std::pair<JSONValue, JSONValue>> texts{
        {1, "1"}, {2, "2"}, {1.0, "1.0"}, {2.5, "2.5"}};
    if (const auto version = model.find("bundle_version"); version != model.end())
      for (const auto& [number, text] : texts)
        if (version->second == number) {
          version->second = text;
          break;
        }
    UserInfoStore::ensureBundleVersionIsString(secrets);
  }
  void restart() { secrets.restart(); }

  void expectToAgree() { RC_ASSERT(UserInfoStore::userInfo(secrets)->data == objectOf(model)); }
};

TEST(UserInfoProperties, everyOperationDoesWhatItDoesToAPlainMap) {
  EXPECT_TRUE(rc::check("user info", [] {
    ModelledUserInfo info;
    for (int step = 0; step < 20; ++step) {
      switch (*rc::gen::inRange(0, 7)) {
        case 0:
          info.deleteKey(*rc::gen::elementOf(profileKeys()));
          break;
        case 1:
          info.deleteDeviceName();
          break;
        case 2:
          info.ensureBundleVersionIsString();
          break;
        case 3:
          info.restart();
          break;
        default:
          info.update(*anyObject(profileKeys(), 2));
      }
      info.expectToAgree();
    }
  }));
}

struct LegacyEntry {
  std::string key;
  int value;
};
void showValue(const LegacyEntry& entry, std::ostream& stream) {
  stream << entry.key << ": " << entry.value;
}

/// What became of a legacy dictionary of integers, told from the last entry of each key.
JSONValue::Object migrated(const std::vector<LegacyEntry>& entries) {
  const std::string prefix = "experiment_";
  JSONValue::Object data, experiments;
  for (const auto& [key, value] : entries) {
    if (key.starts_with(prefix)) {
      experiments.insertOrAssign(key.substr(prefix.size()), value);
      continue;
    }
    data.insertOrAssign(key, value);
    if (key == "experiment") experiments = {};  // it takes the place of those before it
  }
  if (!experiments.empty()) data.insertOrAssign("experiment", experiments);
  return data;
}

TEST(UserInfoProperties, aMigrationGathersTheExperimentsThatNoPlainOneCameAfter) {
  EXPECT_TRUE(rc::check("migration", [] {
    const auto anyEntry = rc::gen::construct<LegacyEntry>(
        rc::gen::element<std::string>("age", "experiment", "experiment_a", "experiment_b",
                                      "experiment_", "experimental"),
        rc::gen::inRange(0, 5));
    const auto entries = *rc::gen::container<std::vector<LegacyEntry>>(anyEntry);
    std::vector<ArchivedEntry> archived;
    for (const auto& [key, value] : entries)
      archived.push_back({key, "<integer>" + std::to_string(value) + "</integer>"});
    InMemorySecretsStorage secrets;
    secrets.put("USUserInfo", keyedArchive(archived));
    RC_ASSERT(UserInfoStore::userInfo(secrets)->data == migrated(entries));
    RC_ASSERT(UserInfoStore::updateUserInfo(secrets, {{"age", 9}}) ==
              migrated(entries).merged({{"age", 9}}));
  }));
}

}  // namespace
}  // namespace kite::test
