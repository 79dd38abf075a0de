#include <Kite/Platform/LegacyArchive.h>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  (void)kite::LegacyArchive::propertyListDictionary({reinterpret_cast<const char*>(data), size});
  return 0;
}
