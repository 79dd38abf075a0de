#pragma once

#include <Kite/Base/FatalError.h>

#include "Base/Guarded.h"

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

namespace kite {

/// The record that a manager got from `start`; asking for it before stops the process. Any thread,
/// without a lock: tracking calls ask for several.
///
/// Another `start` leaves the record of before to those who still read it: records go with their
/// holder.
template <class Record>
class Started {
 public:
  Started(const char* message, SourceLocation where) : _message(message), _where(where) {}

  void set(Record record) {
    auto kept = std::make_unique<const Record>(std::move(record));
    _records.with([&](auto& records) {
      _current.store(kept.get(), std::memory_order_release);
      records.push_back(std::move(kept));
    });
  }

  const Record* get() const {
    const Record* const record = unwrapped();
    if (!record) fatalError(_message, _where);
    return record;
  }
  const Record* operator->() const { return get(); }

  /// The record, or null before `start`.
  const Record* unwrapped() const { return _current.load(std::memory_order_acquire); }

 private:
  const char* _message;
  SourceLocation _where;
  std::atomic<const Record*> _current{nullptr};
  Guarded<std::vector<std::unique_ptr<const Record>>> _records;
};

}  // namespace kite
