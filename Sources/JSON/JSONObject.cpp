#include <Kite/JSONValue.h>

namespace kite {

// Apart from the code that runs for every event, which is compiled for speed and has its own copy.
template class FlatMap<std::string, JSONValue>;

}  // namespace kite
