#pragma once

#include <cstdint>
#include <functional>
#include <utility>

namespace kite {

/// The process that made an object, told from those that are forked from it: in a forked child
/// there are no threads but one, and whatever locks the others held are never released.
class ForkGuard {
 public:
  /// With `System::forkCount`.
  explicit ForkGuard(std::function<std::uint64_t()> forkCount)
      : _forkCount(std::move(forkCount)), _home(_forkCount()) {}

  bool isOriginalProcess() const { return _forkCount() == _home; }

 private:
  std::function<std::uint64_t()> _forkCount;
  std::uint64_t _home;
};

}  // namespace kite
