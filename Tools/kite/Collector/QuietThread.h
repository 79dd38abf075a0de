#pragma once

#include <functional>
#include <thread>

namespace kite::tool {

/// A thread that no signal interrupts: they are the process's business, and a client that is gone
/// must not end the process.
std::thread quietThread(std::function<void()> body);

}  // namespace kite::tool
