#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace kite::tool {

/// Where the demo writes, and what may be done there.
struct Audience {
  explicit Audience(std::FILE* stream);

  std::FILE* out;
  bool canRedraw;   ///< a terminal that takes a carriage return for what it is
  bool hasColours;  ///< such a terminal, and NO_COLOR is not set
  /// Of a terminal.
  std::size_t columns() const;

  std::string good(std::string_view text) const { return coloured(text, 32); }
  std::string bad(std::string_view text) const { return coloured(text, 31); }
  std::string faint(std::string_view text) const { return coloured(text, 2); }

 private:
  std::string coloured(std::string_view text, int code) const;
};

}  // namespace kite::tool
