#pragma once

#include <Kite/Linux/LinuxPlatform.h>

#include <filesystem>
#include <memory>

namespace kite::tool {

/// Which of a host's stores, and what for.
struct StoreChoice {
  std::filesystem::path state;
  bool secrets = false;
  bool forWriting = false;
};

std::filesystem::path folderOf(const StoreChoice& choice);

/// Throws `CommandFailure` when the store cannot be opened.
std::shared_ptr<Linux::StoreInspector> openStore(const StoreChoice& choice);

}  // namespace kite::tool
