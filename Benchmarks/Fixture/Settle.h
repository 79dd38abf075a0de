#pragma once

#include <Kite/Platform/Tempra.h>

#include <future>
#include <memory>

namespace kite::bench {

/// Waits until the queue has run all that was submitted so far.
inline void settle(Tempra::Queue& queue) {
  const auto reached = std::make_shared<std::promise<void>>();
  queue.run([reached] { reached->set_value(); });
  reached->get_future().wait();
}

}  // namespace kite::bench
