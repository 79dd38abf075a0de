#include "Profile/ChangedKeys.h"
#include "Support/AnyJSON.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace kite::test {
namespace {

using KeyPath = std::vector<std::string>;

constexpr int deepest = 3;
const std::vector<std::string>& comparedKeys() {
  static const std::vector<std::string> keys{"a", "b", "c", "a.b"};
  return keys;
}

const JSONValue* lookUp(const JSONValue::Object& info, const KeyPath& path) {
  const JSONValue* value = nullptr;
  const JSONValue::Object* level = &info;
  for (const auto& key : path) {
    value = level ? level->at(key) : nullptr;
    level = value ? value->object() : nullptr;
  }
  return value;
}

/// What an update was to change and did, found by looking at every path that there may be.
struct AllPaths {
  const JSONValue::Object &before, &after, &newData;
  ChangedKeys changed = {};

  bool isObjectInAll(const KeyPath& path) const {
    return std::ranges::all_of(std::vector{&before, &after, &newData}, [&](const auto* info) {
      const auto* value = lookUp(*info, path);
      return value && value->object();
    });
  }
  /// Whether the path is where the three stop being objects at once, having been so up to it.
  bool isCompared(const KeyPath& path) const {
    if (!lookUp(newData, path) || isObjectInAll(path)) return false;
    for (auto end = path.begin() + 1; end != path.end(); ++end)
      if (!isObjectInAll({path.begin(), end})) return false;
    return true;
  }
  void look(const KeyPath& path) {
    if (isCompared(path)) {
      const auto *old = lookUp(before, path), *now = lookUp(after, path);
      std::string text;
      for (const auto& key : path) text += (text.empty() ? "" : ".") + key;
      const bool isUnchanged = old && now && !lookUp(newData, path)->object() && *old == *now;
      if (!old && !now) changed.lostKeys.push_back(text);
      if ((old || now) && !isUnchanged) changed.updatedKeys.push_back(text);
    }
    if (path.size() == deepest + 1) return;
    for (const auto& key : comparedKeys()) {
      auto longer = path;
      longer.push_back(key);
      look(longer);
    }
  }
};

ChangedKeys sorted(ChangedKeys changed) {
  std::ranges::sort(changed.updatedKeys);
  std::ranges::sort(changed.lostKeys);
  return changed;
}

TEST(ChangedKeysProperties, areThoseThatALookAtEveryPathFinds) {
  EXPECT_TRUE(rc::check("changed keys", [] {
    const auto before = *anyObject(comparedKeys(), deepest),
               after = *anyObject(comparedKeys(), deepest),
               newData = *anyObject(comparedKeys(), deepest);
    AllPaths all{before, after, newData};
    for (const auto& key : comparedKeys()) all.look({key});
    RC_ASSERT(sorted(extractChangedKeysFromDictionaries(before, after, newData)) ==
              sorted(all.changed));
  }));
}

TEST(ChangedKeysProperties, ofAnUpdateThatTookEffectAreNeverLost) {
  EXPECT_TRUE(rc::check("changed keys of a merge", [] {
    const auto before = *anyObject(comparedKeys(), deepest),
               newData = *anyObject(comparedKeys(), deepest);
    RC_ASSERT(extractChangedKeysFromDictionaries(before, newData, newData).lostKeys.empty());
    const auto changed =
        extractChangedKeysFromDictionaries(before, before.merged(newData), newData);
    RC_ASSERT(changed.lostKeys.empty());
    for (const auto& [key, value] : newData)
      if (const auto* old = before.at(key); !old || (!value.object() && *old != value))
        RC_ASSERT(std::ranges::count(changed.updatedKeys, key) > 0);
  }));
}

}  // namespace
}  // namespace kite::test
