#pragma once

#include <Kite/Platform/URLSession.h>

#include <cstddef>
#include <mutex>
#include <optional>
#include <semaphore>
#include <utility>
#include <vector>

namespace kite::test {

/// What a completion was called with.
struct Outcome {
  std::optional<Data> body;
  std::optional<URLResponse> response;
  std::optional<TransportError> error;
};

/// Collects what completions are called with, on whatever thread.
class Outcomes {
 public:
  URLSession::Completion completion() {
    return [this](std::optional<Data> body, std::optional<URLResponse> response,
                  std::optional<TransportError> error) {
      {
        const std::scoped_lock guard(_mutex);
        _outcomes.push_back({std::move(body), std::move(response), std::move(error)});
      }
      _come.release();
    };
  }

  /// Waits for the next completion; the latest outcome.
  Outcome await() {
    _come.acquire();
    const std::scoped_lock guard(_mutex);
    return _outcomes.back();
  }
  std::size_t count() const {
    const std::scoped_lock guard(_mutex);
    return _outcomes.size();
  }

 private:
  mutable std::mutex _mutex;
  std::counting_semaphore<> _come{0};
  std::vector<Outcome> _outcomes;
};

}  // namespace kite::test
