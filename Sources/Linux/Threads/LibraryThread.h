#pragma once

#include <functional>
#include <string>

namespace kite::Linux {

/// Starts a thread that belongs to the library: named, deaf to signals, and joined by nobody.
///
/// False when the system has no thread to give. Signals that report a fault of the thread itself
/// still reach it, so that a host's crash handler sees them.
[[nodiscard]] bool startThread(const std::string& name, std::function<void()> body);

}  // namespace kite::Linux
