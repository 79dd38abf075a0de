#pragma once

#include <functional>
#include <vector>

namespace kite::test {

struct SystemCall {
  long number;
  long secondArgument;

  bool wakesASleeper() const;
};

/// Runs `scenario` in a child process and gives the system calls that its own thread makes inside
/// `watch`, in order.
///
/// The scenario runs the body that it hands to `watch` at once, as often as it likes. It may start
/// threads; the caller has none. A scenario that fails ends the test's process as well.
using Watch = std::function<void(const std::function<void()>& body)>;
std::vector<SystemCall> systemCalls(const std::function<void(const Watch& watch)>& scenario);

}  // namespace kite::test
