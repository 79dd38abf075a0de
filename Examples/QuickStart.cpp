#include <Kite/Linux/KiteApplication.h>

#include <iostream>

int main() {
  const auto app = kite::Linux::KiteApplication::start(
      {.name = "trail-maps", .drainLimits = {.deliverWithin = std::chrono::milliseconds(500)}});
  if (!app) return std::cerr << app.error() << '\n', 1;
  app->kite().trackUserAction("checkout", {{"items", 3}, {"gift", true}, {"price", 12.5}});
}
