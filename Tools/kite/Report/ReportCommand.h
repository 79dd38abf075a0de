#pragma once

namespace CLI {
class App;
}

namespace kite::tool {

/// Adds `report` to the command line: what a collector's store says of the last days.
CLI::App* addReportCommand(CLI::App& parent);

}  // namespace kite::tool
