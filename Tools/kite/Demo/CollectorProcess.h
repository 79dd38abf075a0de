#pragma once

#include "Demo/ChildProcess.h"

#include <filesystem>
#include <string>
#include <vector>

namespace kite::tool {

/// A collection service on a free loopback port, with certificates of its own.
class CollectorProcess {
 public:
  /// Keeps everything in `folder`. Waits until the service listens, and its inspector if it is to
  /// have one.
  CollectorProcess(std::filesystem::path folder, const std::string& key,
                   const std::vector<std::string>& faults, bool isInspected);

  const std::string& url() const { return _url; }
  /// The host and port in the URL.
  std::string address() const;
  const std::string& ca() const { return _ca; }
  /// The address of the inspector's page; empty when there is none.
  const std::string& page() const { return _page; }
  std::filesystem::path database() const { return _folder / "events.db"; }
  /// How many requests it has refused by its own judgement, faults aside.
  std::size_t refusals() const;

 private:
  std::string waitForLine(std::size_t number);
  std::filesystem::path log() const { return _folder / "requests.log"; }

  std::filesystem::path _folder;
  ChildProcess _process;
  std::string _url;
  std::string _ca;
  std::string _page;
};

}  // namespace kite::tool
