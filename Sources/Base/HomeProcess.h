#pragma once

#include <cstdint>
#include <functional>
#include <utility>

namespace kite {

/// The process that made an object, told from those that are forked from it: in a forked child
/// there are no threads but one, and whatever locks the others held are never released.
class HomeProcess {
 public:
  /// With `System::forkCount`.
  explicit HomeProcess(std::function<std::uint64_t()> forkCount)
      : _forkCount(std::move(forkCount)), _home(_forkCount()) {}

  bool isHere() const { return _forkCount() == _home; }

 private:
  std::function<std::uint64_t()> _forkCount;
  std::uint64_t _home;
};

}  // namespace kite
