#include "Events/StorefrontEntries.h"

#include <utility>

namespace kite {

JSONValue::Object withStorefront(const std::optional<Storefront>& storefront,
                                 JSONValue::Object data) {
  if (!storefront) return data;
  const JSONValue::Object entries{{"storefront_id", storefront->identifier},
                                  {"storefront_country_code", storefront->countryCode}};
  return entries.merged(data);
}

}  // namespace kite
