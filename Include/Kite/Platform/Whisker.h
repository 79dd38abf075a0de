#pragma once

#include <Kite/Base/SourceLocation.h>
#include <Kite/JSONValue.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kite {

/// Technical telemetry: where the library reports faults of its own. Any thread may call it; a
/// report never waits.
class Whisker {
 public:
  enum class Severity { info, warning, error, critical };

  struct DebugEvent {
    Severity severity;
    std::vector<std::string> categories;
    std::string description;
    std::optional<int> errorCode;
    JSONValue::Object info;

    friend bool operator==(const DebugEvent&, const DebugEvent&) = default;
  };

  virtual ~Whisker() = default;

  /// A client whose every report carries these categories as well.
  virtual std::shared_ptr<Whisker> scoped(std::vector<std::string> categories) = 0;
  virtual void report(const DebugEvent& event, const SourceLocation& where) = 0;
};

}  // namespace kite
