#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Base/UUID.h>
#include <Kite/JSONValue.h>

#include "JSON/JSONCoding.h"

#include <optional>

namespace kite {

/// One period of use of the application, as it is stored.
struct Session {
  UUID id;
  Date startDate;
  JSONValue::Object sessionData;
  bool isCrashed = false;
  std::optional<Date> endDate;
  double duration = 0;  ///< seconds

  friend bool operator==(const Session&, const Session&) = default;
};

/// Dates are seconds since 2001-01-01T00:00:00Z; "end_date" is left out while there is none.
template <>
struct JSONCoding<Session> {
  static JSONValue encode(const Session& session);
  static std::optional<Session> decode(const JSONValue& json);
};

}  // namespace kite
