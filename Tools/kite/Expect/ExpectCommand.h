#pragma once

namespace CLI {
class App;
}

namespace kite::tool {

/// Adds `expect` to the command line: it waits until a running collector has stored what is looked
/// for.
CLI::App* addExpectCommand(CLI::App& parent);

}  // namespace kite::tool
