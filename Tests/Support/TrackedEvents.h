#pragma once

#include "Events/TrackedEvent.h"

#include <memory>
#include <utility>

namespace kite::test {

/// An event of that kind, tracked by this user.
template <class Kind>
TrackedEvent tracked(Kind kind, User user = {}) {
  auto origin = std::make_shared<const EventOrigin>(EventOrigin{"trail-maps", std::move(user)});
  return {std::move(kind), std::move(origin)};
}

}  // namespace kite::test
