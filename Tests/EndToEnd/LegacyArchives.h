#pragma once

#include "EndToEnd/Processes.h"

#include <stdexcept>
#include <string>

namespace kite::test {

/// Runs `write_archives.py`, which describes the JSON text that it takes and has nothing in common
/// with the readers under test.
inline std::string writtenAs(const std::string& form, const std::string& json) {
  const auto result = run({KITE_ARCHIVE_WRITER, form}, json, KITE_PYTHON);
  if (result.status != 0) throw std::runtime_error(result.errors);
  return result.output;
}

inline std::string keyedArchive(const std::string& json) { return writtenAs("keyed", json); }
inline std::string propertyList(const std::string& json) { return writtenAs("plain", json); }

}  // namespace kite::test
