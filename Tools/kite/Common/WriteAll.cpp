#include "Common/WriteAll.h"

#include "Common/CommandFailure.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kite::tool {

void writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::write(descriptor, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      throw CommandFailure(fmt::format("cannot write: {}", std::strerror(errno)));
    }
  }
}

}  // namespace kite::tool
