#pragma once

#include <new>

namespace kite {

/// Runs `body`; false when memory ran out on its way.
///
/// For what must go on all the same: threads of the library, console lines, what C code calls.
template <class Body>
bool catchingBadAlloc(const Body& body) {
  try {
    body();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace kite
