#pragma once

namespace kite {

/// At exit static destructors destroy simdjson's implementation objects while threads may still
/// parse. This installs one that is never destroyed. Any thread, any number of times.
void useLastingParser();

}  // namespace kite
