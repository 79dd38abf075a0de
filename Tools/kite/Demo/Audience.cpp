#include "Demo/Audience.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace kite::tool {
namespace {

std::string_view variable(const char* name) {
  const auto* value = std::getenv(name);
  return value ? value : "";
}

bool isTerminal(std::FILE* stream) {
  return ::isatty(::fileno(stream)) != 0 && variable("TERM") != "dumb";
}

}  // namespace

Audience::Audience(std::FILE* stream)
    : out(stream),
      canRedraw(isTerminal(stream)),
      hasColours(canRedraw && variable("NO_COLOR").empty()) {}

std::size_t Audience::columns() const {
  winsize size{};
  const bool isKnown = ::ioctl(::fileno(out), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return isKnown ? size.ws_col : 80;
}

std::string Audience::coloured(std::string_view text, int code) const {
  return hasColours ? fmt::format("\x1b[{}m{}\x1b[0m", code, text) : std::string(text);
}

}  // namespace kite::tool
