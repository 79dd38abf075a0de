#pragma once

#include <CLI/App.hpp>

namespace kite::tool {

/// `kite queue`: what waits to be uploaded.
CLI::App* addQueueCommand(CLI::App& parent);

}  // namespace kite::tool
