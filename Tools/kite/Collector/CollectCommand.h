#pragma once

namespace CLI {
class App;
}

namespace kite::tool {

/// Adds `collect` to the command line.
///
/// Its callback runs the service until SIGINT or SIGTERM and then returns. Wrong usage leaves it as
/// a `CLI::ValidationError`; a failure prints one line to standard error and leaves as
/// `CLI::RuntimeError(1)`. Call the parser on the main thread, before there are others.
CLI::App* addCollectCommand(CLI::App& parent);

}  // namespace kite::tool
