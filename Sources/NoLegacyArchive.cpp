// In a library that is built without Kite::LegacyArchive. Nothing of an earlier version can be read
// then, and going on would put an empty profile in its place for ever. These functions are weak: a
// host that links Kite::LegacyArchive by itself gets the real ones.

#include <Kite/Base/FatalError.h>
#include <Kite/Platform/LegacyArchive.h>

namespace kite::LegacyArchive {
namespace {

[[noreturn]] void stop() {
  fatalError("This store was written by an earlier version: link Kite::LegacyArchive to migrate it",
             {"Kite/LegacyArchive", "", 0});
}

}  // namespace

[[gnu::weak]] std::optional<DynamicValue::Dictionary> unarchiveDictionary(std::string_view) {
  stop();
}

[[gnu::weak]] std::optional<DynamicValue::Dictionary> propertyListDictionary(std::string_view) {
  stop();
}

}  // namespace kite::LegacyArchive
