#include <Kite/Base/UUID.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kite;

namespace {

char upperCase(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

/// Any bytes as the text of an identifier, and any sixteen as an identifier.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  if (const auto uuid = UUID::parse(text)) {
    const auto isSame = [](char written, char read) { return written == upperCase(read); };
    if (!std::ranges::equal(uuid->text(), text, isSame)) std::abort();
  }
  UUID any;
  std::copy_n(bytes, std::min(size, any.bytes.size()), any.bytes.begin());
  if (UUID::parse(any.text()) != any) std::abort();
  return 0;
}
