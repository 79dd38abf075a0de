#pragma once

#include <Kite/DynamicValue.h>
#include <Kite/JSONValue.h>

#include <optional>

namespace kite {

/// For untyped objects of unknown origin: what has no JSON form gives nothing, and disappears from
/// its collection.
std::optional<JSONValue> toJSONValue(const DynamicValue* object);

/// For what an earlier version archived. A null object becomes null; an object without a JSON form
/// is a corrupt installation and stops the process rather than lose user data silently: "User Info
/// Migration failed".
JSONValue migratedJSONValue(const DynamicValue& object);

}  // namespace kite
