#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Base/SourceLocation.h>

#include <string_view>

namespace kite {

using FatalErrorHandler = void (*)(std::string_view message, const SourceLocation& where);

/// Stops the process: misuse by the host, never a condition of the outside world.
///
/// Prints "Fatal error: MESSAGE: file FILE, line N" to standard error and, when the host called an
/// operation of the facade, a second line "in OPERATION". Then it aborts.
[[noreturn]] KITE_EXPORT void fatalError(std::string_view message, SourceLocation where = {});

/// Replaces what happens before the abort, for tests; the only process-wide setting of the
/// library.
///
/// A handler may leave by throwing. One that returns changes nothing: the process still aborts.
/// Callable from any thread.
KITE_EXPORT FatalErrorHandler exchangeFatalErrorHandler(FatalErrorHandler next) noexcept;

}  // namespace kite
