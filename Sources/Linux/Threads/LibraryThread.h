#pragma once

#include <functional>
#include <string>

namespace kite::Linux {

/// Starts a detached thread with a name; false when the system has no thread to give.
///
/// All signals are blocked in it but those that report a fault of the thread itself, so that a
/// host's crash handler sees them.
[[nodiscard]] bool startThread(const std::string& name, std::function<void()> body);

}  // namespace kite::Linux
