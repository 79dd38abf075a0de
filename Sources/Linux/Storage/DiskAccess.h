#pragma once

#include <cstdint>

namespace kite::Linux {

/// The name of SQLite's way to the disk to open databases with. It is SQLite's own one, but for
/// what that makes of errors:
///
/// - A read that fails says nothing about the bytes that are there; SQLite takes EIO for damage.
/// - A lock that could not be let go of is let go of before the next one is taken; SQLite would
///   stand in its own way for ever.
/// - Where no locks can be had, as on some network file systems, SQLite tries a hundred times with
///   pauses that add up to ten seconds; here they stay short.
/// - The pages of a database file carry sums (`PageSum`), and a wrong one can be made damage.
const char* diskAccessName();

/// The operation for `sqlite3_file_control` that lets pages with wrong sums be read (with an int of
/// 0, as at first) or be damage (1).
inline constexpr int refuseWrongSums = 0x4B697465;

/// How many reads by this thread have failed until now.
std::uint64_t failedReads();

}  // namespace kite::Linux
