#pragma once

#include <Kite/Base/FatalError.h>

#include "Base/ReadSection.h"

#include <atomic>
#include <memory>
#include <utility>

namespace kite {

/// The record that a manager got from `start`; asking for it before stops the process. Any thread,
/// without a lock: tracking calls ask for several.
///
/// Another `start` leaves the record of before to those who still read it; the last of them
/// releases it.
template <class Record>
class Started {
  struct Kept;

 public:
  /// A record, which stays at least as long as this does. For one operation only.
  class Reading {
   public:
    explicit operator bool() const { return _kept != nullptr; }
    const Record& operator*() const { return _kept->record; }
    const Record* operator->() const { return &_kept->record; }

   private:
    friend Started;
    explicit Reading(const std::atomic<Kept*>& current) : _kept(current) {}

    const ReadSection _section;  // opened before the record is looked for
    const Kept* const _kept;
  };

  Started(const char* message, SourceLocation where) : _message(message), _where(where) {}
  Started(const Started&) = delete;
  Started& operator=(const Started&) = delete;
  ~Started() { delete _current.load(); }

  /// Makes the record of its parts.
  template <class... Parts>
  void set(Parts&&... parts) {
    auto kept = std::make_unique<Kept>(std::forward<Parts>(parts)...);
    if (Kept* const before = _current.exchange(kept.release()))
      retire(std::unique_ptr<Retired>(before));
  }

  Reading get() const {
    if (!_current.load(std::memory_order_relaxed)) fatalError(_message, _where);
    return unwrapped();
  }
  Reading operator->() const { return get(); }

  /// The record, or nothing before `start`.
  Reading unwrapped() const { return Reading(_current); }

 private:
  struct Kept final : Retired {
    template <class... Parts>
    explicit Kept(Parts&&... parts) : record{std::forward<Parts>(parts)...} {}
    const Record record;
  };

  const char* _message;
  SourceLocation _where;
  std::atomic<Kept*> _current{nullptr};
};

}  // namespace kite
