#pragma once

#include <CLI/App.hpp>

namespace kite::tool {

/// `kite store`: one value of a host's stores, read or replaced.
CLI::App* addStoreCommand(CLI::App& parent);

}  // namespace kite::tool
