#pragma once

#include <Kite/Linux/LinuxPlatform.h>

#include <CLI/App.hpp>

#include <filesystem>
#include <memory>
#include <string>

namespace kite::tool {

/// Which of a host's stores, and what for.
struct StoreChoice {
  std::filesystem::path state;  ///< of `kite host`, which keeps its stores in folders of it
  std::string application;      ///< else the one whose stores are where they are by default
  bool secrets = false;
  bool forWriting = false;
};

/// Declares --state and --app, of which one is needed; parsing fills `choice`.
void addStoreChoice(CLI::App& command, StoreChoice& choice);

std::filesystem::path folderOf(const StoreChoice& choice);

/// Throws `CommandFailure` when the store cannot be opened.
std::shared_ptr<Linux::StoreInspector> openStore(const StoreChoice& choice);

}  // namespace kite::tool
