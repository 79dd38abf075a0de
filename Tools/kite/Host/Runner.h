#pragma once

#include "Host/Host.h"
#include "Host/HostOperations.h"
#include "Host/LineReader.h"

#include <cstdint>
#include <string>

namespace kite::tool {

struct Answer {
  std::string text;  ///< one JSON object
  Next next = Next::goOn;
};

/// Carries out the lines of a script, one after another, on the caller's thread.
class Runner {
 public:
  /// `source` is what the script is called. The host must outlive the runner.
  Runner(Host& host, std::string source) : _host(host), _source(std::move(source)) {}

  /// A line that asks for something impossible is answered with an error. Misuse of the facade
  /// stops the process, as it would any host.
  Answer answer(const Line& line);

 private:
  Answer perform(const Line& line);

  Host& _host;
  std::string _source;
  std::uint32_t _lineNumber = 0;
};

}  // namespace kite::tool
