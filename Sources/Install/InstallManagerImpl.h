#pragma once

#include <Kite/Platform/System.h>

#include "Base/Started.h"
#include "Events/EventKinds.h"
#include "Install/InstallManager.h"

#include <concepts>
#include <mutex>
#include <optional>
#include <string_view>

namespace kite {

/// Keeps its record twice, so that it survives both a removal of the application and a loss of the
/// secrets. Does all its work in `start`, on the caller's thread.
class InstallManagerImpl final : public InstallManager {
 public:
  static constexpr Larder::Key<StoredInformations> informationsKey{"Kite-Install-Manager"};
  static constexpr std::string_view legacyKey = "VLInstallManager";

  explicit InstallManagerImpl(System system = System::live());

  void start(InstallManagerDependencies dependencies) override;
  StoredInformations ssInfo() override;
  StoredInformations kvInfo() override;

 private:
  using Found = std::shared_ptr<const StoredInformations>;

  /// What is known of the launches before this one; of several answers the first one counts.
  StoredInformations resolvedInformations();
  std::optional<InstallPayload> computeInstallEvent(const StoredInformations& old) const;
  void performMigrationIfNeeded();
  void updateData(bool installedBeforeKite, std::optional<double> firstInstallTimestamp);

  Found ssRecord();
  Found kvRecord();
  void setSSRecord(const StoredInformations& informations);
  void setKVRecord(const StoredInformations& informations);

  const System _system;
  Started<InstallManagerDependencies> _dependencies{"Call start before using the InstallManager",
                                                    {"Kite/InstallManagerImpl", "", 0}};
  std::mutex _ssLock;
  std::mutex _kvLock;
};

static_assert(std::default_initializable<InstallManagerImpl>);

}  // namespace kite
