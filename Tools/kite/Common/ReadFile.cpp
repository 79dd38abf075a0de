#include "Common/ReadFile.h"

#include "Common/CommandFailure.h"

#include <fmt/format.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

namespace kite::tool {

std::string readFile(const std::filesystem::path& file) {
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream bytes;
  if (stream.peek() != std::ifstream::traits_type::eof()) bytes << stream.rdbuf();
  const auto reason = std::generic_category().message(errno);
  if (!stream.is_open() || stream.bad() || std::filesystem::is_directory(file))
    throw CommandFailure(fmt::format("cannot read {}: {}", file.string(), reason));
  return std::move(bytes).str();
}

}  // namespace kite::tool
