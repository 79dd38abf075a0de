#pragma once

#include <CLI/App.hpp>

namespace kite::tool {

/// `kite demo`: the library at work, from the first launch to the collector's database.
CLI::App* addDemoCommand(CLI::App& parent);

}  // namespace kite::tool
