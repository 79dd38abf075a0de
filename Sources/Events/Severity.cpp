#include <Kite/Severity.h>

#include <cstddef>

namespace kite {

std::string_view text(Severity severity) {
  constexpr std::array<std::string_view, allSeverities.size()> texts{"Debug", "Notice", "Warning",
                                                                     "Error", "Critical"};
  return texts.at(static_cast<std::size_t>(severity));
}

}  // namespace kite
