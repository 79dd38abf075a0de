#pragma once

#include <Kite/JSONValue.h>
#include <Kite/KiteManager.h>

#include <functional>
#include <string_view>
#include <vector>

namespace kite::tool {

/// A property of the facade as a line asks for it.
struct Read {
  std::string_view name;
  std::function<JSONValue(KiteManager&)> run;
};

const std::vector<Read>& reads();

}  // namespace kite::tool
