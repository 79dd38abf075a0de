#include "Common/ReadFile.h"

#include "Common/CommandFailure.h"

#include <fmt/format.h>

#include <fstream>
#include <sstream>
#include <utility>

namespace kite::tool {

std::string readFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream.is_open() || std::filesystem::is_directory(file))
    throw CommandFailure(fmt::format("cannot read {}", file.string()));
  std::ostringstream bytes;
  bytes << stream.rdbuf();
  return std::move(bytes).str();
}

}  // namespace kite::tool
