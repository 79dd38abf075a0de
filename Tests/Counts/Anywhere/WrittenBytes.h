#pragma once

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>

namespace kite::test {

/// How many bytes this process has handed to the system for writing, as the kernel counts them.
inline std::uint64_t writtenBytes() {
  std::ifstream counts("/proc/self/io");
  for (std::string name; counts >> name;) {
    std::uint64_t count = 0;
    counts >> count;
    if (name == "wchar:") return count;
  }
  throw std::runtime_error("the kernel does not count what is written");
}

}  // namespace kite::test
