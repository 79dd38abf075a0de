#include "Profile/ChangedKeys.h"

namespace kite {
namespace {

/// One level of the comparison, how far it has come, and the path that leads to it.
struct Level {
  const JSONValue::Object* oldInfo;
  const JSONValue::Object* newInfo;
  JSONValue::Object::const_iterator next;
  JSONValue::Object::const_iterator end;
  std::string prefix;
};

const JSONValue::Object* objectIn(const JSONValue* value) {
  return value ? value->object() : nullptr;
}

}  // namespace

ChangedKeys extractChangedKeysFromDictionaries(const JSONValue::Object& oldUserInfo,
                                               const JSONValue::Object& newUserInfo,
                                               const JSONValue::Object& newData) {
  ChangedKeys changed;
  std::vector<Level> levels{{&oldUserInfo, &newUserInfo, newData.begin(), newData.end(), ""}};
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.next == level.end) {
      levels.pop_back();
      continue;
    }
    const auto& [key, value] = *level.next++;
    const JSONValue* before = level.oldInfo->at(key);
    const JSONValue* after = level.newInfo->at(key);
    std::string path = level.prefix + key;
    const JSONValue::Object* inner = value.object();
    if (inner && objectIn(before) && objectIn(after)) {
      levels.push_back(
          {before->object(), after->object(), inner->begin(), inner->end(), path + "."});
    } else if (!before && !after) {
      changed.lostKeys.push_back(std::move(path));
    } else if (inner || !before || !after || *before != *after) {
      changed.updatedKeys.push_back(std::move(path));
    }
  }
  return changed;
}

}  // namespace kite
