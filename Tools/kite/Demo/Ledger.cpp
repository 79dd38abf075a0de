#include "Demo/Ledger.h"

#include "Demo/Event.h"

namespace kite::tool {

JSONValue::Object Ledger::track(const std::string& type, JSONValue::Object content) {
  content.insertOrAssign(sequenceKey, ++_lastSequence);
  _tracked.emplace(_lastSequence, Tracked{type, content});
  return content;
}

JSONValue::Object Ledger::trackInVain(JSONValue::Object content) {
  content.insertOrAssign(sequenceKey, ++_lastSequence);
  return content;
}

void Ledger::expect(const std::string& type, const std::string& detail) {
  ++_expected[{type, detail}];
}

std::size_t Ledger::size() const {
  auto size = _tracked.size();
  for (const auto& [kind, count] : _expected) size += count;
  return size;
}

}  // namespace kite::tool
