#include "LegacyArchive/PropertyList.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using kite::DynamicValue;
namespace PropertyList = kite::PropertyList;

// What was read and written once is read again as the same, unless a number that is none is in it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto value = PropertyList::read({reinterpret_cast<const char*>(data), size});
  if (!value || !value->dictionary()) return 0;
  const auto written = PropertyList::write(*value->dictionary());
  const auto again = PropertyList::read(written);
  if (!again || !again->dictionary()) std::abort();
  if (PropertyList::write(*again->dictionary()) != written) std::abort();
  return 0;
}
