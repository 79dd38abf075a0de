#pragma once

#include <Kite/KiteData.h>

#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

namespace kite::bench {

/// The least that handing over an event could be.
struct PlainQueue {
  void push(std::string_view name, KiteData properties) {
    const std::scoped_lock guard(mutex);
    actions.emplace_back(name, std::move(properties));
  }
  std::mutex mutex;
  std::vector<std::pair<std::string_view, KiteData>> actions;
};

}  // namespace kite::bench
