#include <Kite/Platform/LegacyArchive.h>

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view archive(reinterpret_cast<const char*>(data), size);
  kite::LegacyArchive::unarchiveDictionary(archive);
  return 0;
}
