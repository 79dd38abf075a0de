#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace kite::tool {

/// An option that names a file whose first line is a secret. An argument would show it to everyone
/// on the machine. A file without one is a usage error.
CLI::Option* addSecretFile(CLI::App& command, const std::string& option,
                           const std::function<void(const std::string&)>& take,
                           const std::string& description);

}  // namespace kite::tool
