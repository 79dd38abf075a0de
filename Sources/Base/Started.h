#pragma once

#include <Kite/Base/FatalError.h>

#include "Base/Published.h"

#include <utility>

namespace kite {

/// The record that a manager got from `start`; asking for it before stops the process. Any thread,
/// without a lock: tracking calls ask for several.
template <class Record>
class Started {
 public:
  using Reading = typename Published<Record>::Reading;

  Started(const char* message, SourceLocation where) : _message(message), _where(where) {}

  /// Makes the record of its parts.
  template <class... Parts>
  void set(Parts&&... parts) {
    _record.set(std::forward<Parts>(parts)...);
  }

  Reading get() const {
    if (!_record.isSet()) fatalError(_message, _where);
    return _record.read();
  }
  Reading operator->() const { return get(); }

  /// The record, or nothing before `start`.
  Reading unwrapped() const { return _record.read(); }

 private:
  const char* _message;
  SourceLocation _where;
  Published<Record> _record;
};

}  // namespace kite
