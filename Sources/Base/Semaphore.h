#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace kite {

/// A counting semaphore that begins at zero.
///
/// `std::counting_semaphore` of libstdc++ 12 can sleep through a release.
class Semaphore {
 public:
  void release() {
    const std::scoped_lock guard(_mutex);
    ++_count;
    _released.notify_one();
  }
  void acquire() {
    std::unique_lock guard(_mutex);
    _released.wait(guard, [this] { return _count > 0; });
    --_count;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _released;
  std::size_t _count = 0;
};

}  // namespace kite
