#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

inline constexpr std::size_t maximumLineLength = 1 << 20;

struct Line {
  std::string text;        ///< without its end
  bool isTooLong = false;  ///< `text` is then empty
};

/// Splits what a file descriptor delivers into lines. Of a line above `maximumLineLength` it keeps
/// nothing.
class LineReader {
 public:
  /// Borrows the descriptor.
  explicit LineReader(int descriptor) : _descriptor(descriptor) {}

  /// The next line as soon as it is complete; nothing at the end. What follows the last line end
  /// is a line too, unless it is empty. Throws `CommandFailure` when reading fails.
  std::optional<Line> next();

 private:
  bool fill();
  void take(std::string_view piece, Line& line) const;

  int _descriptor;
  std::string _buffer;
  std::size_t _position = 0;
};

}  // namespace kite::tool
