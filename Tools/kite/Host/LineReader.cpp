#include "Host/LineReader.h"

#include "Common/CommandFailure.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kite::tool {
namespace {
constexpr std::size_t chunkSize = 1 << 16;
}

std::optional<Line> LineReader::next() {
  Line line;
  bool isBegun = false;
  while (_position < _buffer.size() || fill()) {
    isBegun = true;
    const auto rest = std::string_view(_buffer).substr(_position);
    const auto end = rest.find('\n');
    take(rest.substr(0, end), line);
    _position += end == rest.npos ? rest.size() : end + 1;
    if (end != rest.npos) return line;
  }
  if (!isBegun) return std::nullopt;
  return line;
}

void LineReader::take(std::string_view piece, Line& line) const {
  line.isTooLong = line.isTooLong || line.text.size() + piece.size() > maximumLineLength;
  if (line.isTooLong) {
    line.text = {};
  } else {
    line.text += piece;
  }
}

bool LineReader::fill() {
  _buffer.resize(chunkSize);
  _position = 0;
  ssize_t count;
  do {
    count = ::read(_descriptor, _buffer.data(), _buffer.size());
  } while (count < 0 && errno == EINTR);
  _buffer.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  if (count < 0)
    throw CommandFailure(fmt::format("cannot read commands: {}", std::strerror(errno)));
  return count > 0;
}

}  // namespace kite::tool
