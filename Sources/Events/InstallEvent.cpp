#include "Events/InstallEvent.h"

#include "Events/OrNull.h"
#include "Events/StorefrontEntries.h"

#include <utility>

namespace kite {
namespace {

const char* text(Usher::CreationType type) {
  switch (type) {
    case Usher::CreationType::notApplicable:
      return "not_applicable";
    case Usher::CreationType::justGenerated:
      return "just_generated";
    case Usher::CreationType::readFromFile:
      return "read_from_file";
  }
  return "not_applicable";
}

}  // namespace

JSONValue::Object InstallPayload::data() const {
  JSONValue::Object data{
      {"installed_before_kite", installedBeforeKite},
      {"keychain_id_status", text(keychainStatus)},
      {"userdefault_id_status", text(userdefaultStatus)},
      {"new_app_version", newAppVersion},
      {"document_directory_creation_timestamp", orNull(documentDirectoryCreationTimestamp)}};
  if (oldBundleVersion) data.insertOrAssign("old_bundle_version", *oldBundleVersion);
  if (oldAppVersion) data.insertOrAssign("old_app_version", *oldAppVersion);
  return data;
}

InstallEvent::InstallEvent(InstallPayload payload, const Shared<User>& user,
                           std::optional<Storefront> storefront)
    : _payload(std::move(payload)), _user(user), _storefront(std::move(storefront)) {}

JSONValue::Object InstallEvent::data() const {
  return withStorefront(_storefront, _payload.data());
}

}  // namespace kite
