#include "Store/PropertyListFile.h"

#include "Common/CommandFailure.h"
#include "Common/ReadFile.h"

#include <Kite/Platform/LegacyArchive.h>
#include <fmt/format.h>

namespace kite::tool {

DynamicValue::Dictionary readPropertyListFile(const std::filesystem::path& file) {
  auto dictionary = LegacyArchive::propertyListDictionary(readFile(file));
  if (!dictionary)
    throw CommandFailure(
        fmt::format("{}: not a property list with a dictionary at its root", file.string()));
  return *std::move(dictionary);
}

}  // namespace kite::tool
