#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Base/Export.h>
#include <Kite/Base/UUID.h>

#include <cstdint>
#include <functional>
#include <string_view>

namespace kite {

/// What the library asks of the machine itself, whatever clocks and identifiers the host supplies
/// elsewhere.
///
/// A host replaces `print` to send the console lines somewhere else; tests replace all of them. All
/// may be called from any thread.
struct KITE_EXPORT System {
  /// The wall clock.
  std::function<Date()> now;
  /// A new version-4 UUID.
  std::function<UUID()> randomUUID;
  /// Writes one diagnostic line; the line comes without its end. By default it goes to standard
  /// error in one write.
  std::function<void(std::string_view line)> print;
  /// How many forks lie between this process and the first that asked: it differs from that of
  /// every process that this one was forked from. Called by every operation, so without a system
  /// call.
  std::function<std::uint64_t()> forkCount = [] { return std::uint64_t{0}; };

  /// The real ones. Implemented by the platform.
  static const System& live();
};

}  // namespace kite
