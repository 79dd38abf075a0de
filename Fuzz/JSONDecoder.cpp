#include "JSON/JSONDecoder.h"

#include "JSON/JSONWriter.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace kite;

/// Any bytes as JSON text: what is read is the same after it was written and read again, and only
/// deep nesting keeps it from being written.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const auto value = decodeJSON(std::string_view(reinterpret_cast<const char*>(bytes), size));
  if (!value) return 0;
  std::string text;
  if (const auto error = appendJSON(text, *value)) {
    if (error->codingPath.size() != maximumEncodedDepth) std::abort();
    return 0;
  }
  const auto again = decodeJSON(text);
  if (!again || !(*again == *value)) std::abort();
  std::string sameText;
  if (appendJSON(sameText, *again) || sameText != text) std::abort();
  return 0;
}
