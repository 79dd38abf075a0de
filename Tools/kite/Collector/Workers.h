#pragma once

#include "Collector/Intake.h"
#include "Collector/WorkLoad.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kite::tool {

/// Does work with intakes: with a single one on the caller's thread, or with several, each on a
/// thread of its own. What must be done on the caller's thread in the end, comes back there.
class Workers {
 public:
  using Rest = std::function<void()>;
  /// Gives what remains to be done on the caller's thread.
  using Work = std::function<Rest(Intake&)>;

  /// Everything is done within `add`.
  explicit Workers(Intake own);
  /// `wake` is called from the threads, whenever there is something for `finish`.
  Workers(std::vector<Intake> intakes, WorkBound bound, std::function<void()> wake);
  /// Stops. What is left for `finish` is forgotten.
  ~Workers();

  /// False when there is too much work, or it was stopped; then this one is forgotten.
  bool add(std::size_t bytes, Work work);
  /// Does what remains of the work that the threads did, on the caller's thread.
  void finish();
  /// Forgets the work that waits, and returns when no other is done any more. From any thread.
  void stop();
  /// From any thread.
  WorkLoad load() const;

 private:
  struct Job {
    std::size_t bytes;
    Work work;
  };
  struct Done {
    std::size_t bytes;
    Rest rest;
  };

  void run(Intake& intake);

  std::vector<Intake> _intakes;
  WorkBound _bound;
  std::function<void()> _wake;

  std::vector<std::thread> _threads;
  std::atomic<std::size_t> _busy = 0;

  mutable std::mutex _mutex;  // guards all that follows
  std::condition_variable _isThereWork;
  std::deque<Job> _waiting;
  std::vector<Done> _done;
  std::size_t _bytes = 0;
  bool _isStopped = false;
};

}  // namespace kite::tool
