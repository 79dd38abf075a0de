#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Base/Export.h>
#include <Kite/Base/UUID.h>

#include <functional>
#include <string_view>

namespace kite {

/// What the library asks of the machine itself, whatever clocks and identifiers the host supplies
/// elsewhere.
///
/// A host replaces `print` to send the console lines somewhere else; tests replace all three. All
/// may be called from any thread.
struct KITE_EXPORT System {
  /// The wall clock.
  std::function<Date()> now;
  /// A new version-4 UUID.
  std::function<UUID()> randomUUID;
  /// Writes one diagnostic line; the line comes without its end. By default it goes to standard
  /// error in one write.
  std::function<void(std::string_view line)> print;

  /// The real ones. Implemented by the platform.
  static const System& live();
};

}  // namespace kite
