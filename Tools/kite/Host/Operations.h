#pragma once

#include <Kite/KiteManager.h>

#include "Host/Arguments.h"

#include <functional>
#include <string_view>
#include <vector>

namespace kite::tool {

/// A facade operation as a line calls it.
struct Operation {
  std::string_view name;
  std::vector<std::string_view> members;
  /// Throws `BadLine` before the facade is touched.
  std::function<void(KiteManager&, const Arguments&)> run;
};

const std::vector<Operation>& operations();

}  // namespace kite::tool
