#pragma once

#include <Kite/Platform/System.h>

#include <string_view>

namespace kite::bench {

/// The real machine without its console.
inline System quietSystem() {
  System system = System::live();
  system.print = [](std::string_view) {};
  return system;
}

}  // namespace kite::bench
