#pragma once

#include <Kite/JSONValue.h>
#include <Kite/Storefront.h>

#include <optional>

namespace kite {

/// An event's data together with its storefront's entries, if there is one. The event's own entry
/// wins.
JSONValue::Object withStorefront(const std::optional<Storefront>& storefront,
                                 JSONValue::Object data);

}  // namespace kite
