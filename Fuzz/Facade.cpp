#include "Facade/Operations.h"

#include <cstdint>

/// Any bytes as what a host does with the facade, and as what befalls it meanwhile: no event is
/// lost, invented, sent twice or out of its order.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace kite::fuzz;
  RandomBytes random({reinterpret_cast<const char*>(bytes), size});
  ModelledHost host;
  constexpr int enough = 64;  // the queue is read after each
  for (int count = 0; count < enough && !random.isAtEnd(); ++count) {
    operate(host, random);
    host.check();
  }
  host.checkThatAllArrives();
  return 0;
}
