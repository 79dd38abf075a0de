#pragma once

#include "Host/Arguments.h"
#include "Host/Host.h"

#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace kite::tool {

/// What follows an answered line.
enum class Next { goOn, quit, crash };

struct HostAnswer {
  Next next = Next::goOn;
  std::optional<JSONValue> value = {};
};

/// What a line asks of the host itself.
struct HostOperation {
  std::string_view name;
  std::vector<std::string_view> members;
  /// Throws `BadLine`.
  std::function<HostAnswer(Host&, const Arguments&)> run;
};

const std::vector<HostOperation>& hostOperations();

}  // namespace kite::tool
