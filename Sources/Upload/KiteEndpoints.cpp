#include <Kite/Base/FatalError.h>
#include <Kite/KiteEndpoints.h>

namespace kite {
namespace {

URL endpoint(std::string_view text) {
  const auto url = URL::parse(text);
  if (!url)
    fatalError("Invalid endpoint " + std::string(text) + ": " + url.error(),
               {"KiteEndpoints", __func__, __LINE__});
  return *url;
}

}  // namespace

const KiteEndpoints& KiteEndpoints::defaultEndpoints() {
  static const KiteEndpoints& endpoints =
      *new KiteEndpoints{.production = endpoint("https://events.kite.example/v4/events"),
                         .staging = endpoint("https://events-staging.kite.example/v4/events")};
  return endpoints;  // never destroyed, so that threads that outlive main may still read it
}

}  // namespace kite
