#pragma once

#include <string>

namespace kite::tool {

/// Lets the desktop open the address; false when there is no program for it.
bool openInBrowser(const std::string& url);

}  // namespace kite::tool
