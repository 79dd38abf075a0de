#pragma once

#include "Linux/Machine/Machine.h"

#include <map>
#include <string>
#include <utility>

namespace kite::Linux {

/// An environment of these variables and no others.
inline Environment environment(std::map<std::string, std::string> variables) {
  return [variables = std::move(variables)](const char* name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    return found == variables.end() ? std::nullopt : std::optional(found->second);
  };
}

}  // namespace kite::Linux
