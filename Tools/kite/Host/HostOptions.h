#pragma once

#include <Kite/KiteEndpoints.h>
#include <Kite/Platform/Kitbag.h>
#include <Kite/Storefront.h>

#include <CLI/App.hpp>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kite::tool {

/// The command line of `kite host`.
struct HostOptions {
  std::optional<std::filesystem::path> state;
  std::optional<URL> endpoint;  ///< else the collection service's own
  std::vector<URL> secondaries;
  std::optional<std::filesystem::path> caFile;
  std::string key;
  std::string lumoID = "kite-host";
  Kitbag kitbag;
  bool installedBeforeKite = false;
  std::optional<Storefront> storefront;
  bool hasManualSessions = false;
  bool syncsOnSessionEnd = false;
  bool startsInBackground = false;
  std::optional<std::string> locale;
  std::optional<std::string> timeZone;
  std::vector<std::string> preferredLanguages;
  std::optional<std::filesystem::path> attribution;
  std::map<std::string, std::string> customIDs;
  bool isNoop = false;
  std::optional<std::filesystem::path> script;  ///< else standard input
};

/// Declares the options on `command`; parsing fills the returned record.
std::shared_ptr<HostOptions> addHostOptions(CLI::App& command);

}  // namespace kite::tool
