#include <Kite/Base/URL.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kite;

namespace {

bool isPrintable(char c) { return c >= ' ' && c < '\x7F'; }
bool isVisibleASCII(char c) { return c > ' ' && c < '\x7F'; }
bool isSchemeCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

}  // namespace

/// Any bytes as a URL: what is taken is kept as it is, and safe to put into a line of text. So is
/// the reason why one is refused.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const auto url = URL::parse(text);
  if (!url) {
    if (url.error().empty() || !std::ranges::all_of(url.error(), isPrintable)) std::abort();
    return 0;
  }
  const auto scheme = url->scheme();
  if (url->absoluteString() != text || !std::ranges::all_of(text, isVisibleASCII)) std::abort();
  if (scheme.empty() || !std::ranges::all_of(scheme, isSchemeCharacter)) std::abort();
  const auto origin = url->origin();
  if (!origin.starts_with(scheme + "://") || origin.find_first_of("@?#") != origin.npos)
    std::abort();
  if (text.substr(scheme.size(), 3) != "://" || text.size() < scheme.size() + 4) std::abort();
  return 0;
}
