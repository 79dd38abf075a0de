#include "Events/EventType.h"

#include <Kite/Base/FatalError.h>

#include <algorithm>
#include <array>
#include <utility>

namespace kite {
namespace {

using FixedKind = std::pair<std::string_view, EventType::Case>;

constexpr std::array fixedKinds{
    FixedKind{"Session", EventType::Case::session},
    FixedKind{"ExperimentSegmentReceived", EventType::Case::experimentSegmentsReceived},
    FixedKind{"Install", EventType::Case::install},
    FixedKind{"UserAction", EventType::Case::userAction},
    FixedKind{"UserInfoUpdated", EventType::Case::userInfoUpdated},
    FixedKind{"DebugEvent", EventType::Case::debugEvent},
};

// The other three fixed names pass: hosts have tables of these names.
constexpr std::size_t reservedCount = 3;

void refuseReserved(std::string_view name) {
  for (std::size_t i = 0; i < reservedCount; ++i)
    if (fixedKinds[i].first == name)
      fatalError("You cannot use " + std::string(name) + " as a name for a custom event.",
                 {"Event", "", 99});
}

}  // namespace

EventType EventType::custom(std::string name) {
  EventType type(Case::custom);
  type._name = std::move(name);
  return type;
}

std::string_view EventType::rawValue() const {
  if (_case != Case::custom) return std::ranges::find(fixedKinds, _case, &FixedKind::second)->first;
  refuseReserved(_name);
  return _name;
}

std::optional<EventType> EventType::fromRawValue(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const auto* fixed = std::ranges::find(fixedKinds, text, &FixedKind::first);
  return fixed != fixedKinds.end() ? EventType(fixed->second) : custom(std::string(text));
}

}  // namespace kite
