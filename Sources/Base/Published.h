#pragma once

#include "Base/ReadSection.h"

#include <atomic>
#include <memory>
#include <utility>

namespace kite {

/// A value that any thread reads without a lock, and any thread replaces as a whole.
///
/// The value of before is left to those who still read it; the last of them releases it.
template <class T>
class Published {
  struct Kept;

 public:
  /// The value, or nothing before the first `set`; it stays at least as long as this does. For one
  /// operation only.
  class Reading {
   public:
    explicit operator bool() const { return _kept != nullptr; }
    const T& operator*() const { return _kept->value; }
    const T* operator->() const { return &_kept->value; }

   private:
    friend Published;
    explicit Reading(const std::atomic<Kept*>& current) : _kept(current) {}

    const ReadSection _section;  // opened before the value is looked for
    const Kept* const _kept;
  };

  Published() = default;
  explicit Published(T value) { set(std::move(value)); }
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;
  ~Published() { delete _current.load(); }

  /// Makes the value of its parts.
  template <class... Parts>
  void set(Parts&&... parts) {
    auto kept = std::make_unique<Kept>(std::forward<Parts>(parts)...);
    if (Kept* const before = _current.exchange(kept.release()))
      retire(std::unique_ptr<Retired>(before));
  }

  bool isSet() const { return _current.load(std::memory_order_relaxed) != nullptr; }
  Reading read() const { return Reading(_current); }

 private:
  struct Kept final : Retired {
    template <class... Parts>
    explicit Kept(Parts&&... parts) : value{std::forward<Parts>(parts)...} {}
    const T value;
  };

  std::atomic<Kept*> _current{nullptr};
};

}  // namespace kite
