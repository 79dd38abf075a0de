#pragma once

#include <functional>
#include <memory>

/// What ends a process without the destructors of its main function.
namespace kite::Linux {

/// Something to be done before the process ends, by whoever comes first; the others wait.
class LastWork {
 public:
  virtual ~LastWork() = default;
  virtual void doLastWork() = 0;
};

/// `std::exit`, a return from main, and `std::quick_exit` do the work, unless its owner is gone.
void doAtExit(std::weak_ptr<LastWork> work);
/// The first SIGTERM or SIGINT does the work and then ends the process as it would without; a
/// second one ends it at once. A signal that is ignored stays so.
void doAtSignals(std::weak_ptr<LastWork> work);

}  // namespace kite::Linux
