#pragma once

#include <Kite/Base/FatalError.h>

#include "Base/Guarded.h"

#include <memory>
#include <utility>

namespace kite {

/// The record that a manager got from `start`; asking for it before stops the process. Any thread.
template <class Record>
class Started {
 public:
  Started(const char* message, SourceLocation where) : _message(message), _where(where) {}

  void set(Record record) { _record.set(std::make_shared<const Record>(std::move(record))); }

  /// The record, kept alive by the caller even if `start` runs again meanwhile.
  std::shared_ptr<const Record> get() const {
    auto record = _record.copy();
    if (!record) fatalError(_message, _where);
    return record;
  }
  std::shared_ptr<const Record> operator->() const { return get(); }

  /// The record, or null before `start`.
  std::shared_ptr<const Record> unwrapped() const { return _record.copy(); }

 private:
  const char* _message;
  SourceLocation _where;
  Guarded<std::shared_ptr<const Record>> _record;
};

}  // namespace kite
