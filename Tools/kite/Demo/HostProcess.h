#pragma once

#include <Kite/JSONValue.h>

#include "Demo/ChildProcess.h"

#include <filesystem>
#include <string>
#include <vector>

namespace kite::tool {

/// A run of `kite host`.
class HostProcess {
 public:
  HostProcess(const std::vector<std::string>& options, const std::filesystem::path& log);

  /// Sends a line; throws `CommandFailure` when it is answered with an error.
  void call(const std::string& op, JSONValue::Object members = {});
  /// Leaves as an application does that its user closes.
  void quit();
  /// Dies at once, by SIGKILL.
  void crash();

 private:
  ChildProcess _process;
};

}  // namespace kite::tool
