#pragma once

#include <Kite/Base/Result.h>
#include <Kite/Base/URL.h>
#include <Kite/Linux/KiteApplication.h>

#include "Linux/Machine/Machine.h"

#include <string>
#include <vector>

namespace kite::Linux {

/// Options that a start can go on with.
struct CheckedOptions {
  KiteApplicationOptions options;  ///< with what the environment says in place of what was left out
  URL endpoint;
  std::vector<URL> fallbackEndpoints;
};

/// The error names the option and says what is wrong with it. Makes the folders that are missing.
Result<CheckedOptions, std::string> check(KiteApplicationOptions options,
                                          const Environment& environment);

}  // namespace kite::Linux
