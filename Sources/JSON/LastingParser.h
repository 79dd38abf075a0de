#pragma once

namespace kite {

/// A process that exits destroys simdjson's own implementations under the hands of threads that
/// still parse. From here on they use one that stays. Any thread, any number of times.
void useLastingParser();

}  // namespace kite
