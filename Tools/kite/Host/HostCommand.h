#pragma once

#include <CLI/App.hpp>

namespace kite::tool {

/// `kite host`: an application with the library in it, driven line by line.
CLI::App* addHostCommand(CLI::App& parent);

}  // namespace kite::tool
