#pragma once

#include <Kite/Platform/Usher.h>
#include <Kite/Storefront.h>

#include "Events/KiteEvent.h"

namespace kite {

struct InstallPayload {
  UUID id;
  double timestamp;
  bool installedBeforeKite;
  Usher::CreationType keychainStatus;
  Usher::CreationType userdefaultStatus;
  std::optional<std::string> oldBundleVersion;
  std::optional<std::string> oldAppVersion;
  std::string newAppVersion;
  std::optional<double> documentDirectoryCreationTimestamp;  ///< seconds since 1970

  JSONValue::Object data() const;

  friend bool operator==(const InstallPayload&, const InstallPayload&) = default;
};

class InstallEvent {
 public:
  InstallEvent(InstallPayload payload, const Shared<User>& user,
               std::optional<Storefront> storefront);

  EventType type() const { return EventType::Case::install; }
  std::string id() const { return _payload.id.text(); }
  double timestamp() const { return _payload.timestamp; }
  std::optional<double> requestTimestamp() const { return std::nullopt; }
  const Shared<User>& user() const { return _user; }
  JSONValue::Object data() const;

 private:
  InstallPayload _payload;
  Shared<User> _user;
  std::optional<Storefront> _storefront;
};

static_assert(KiteEvent<InstallEvent>);

}  // namespace kite
