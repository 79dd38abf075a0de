#pragma once

#include <Kite/Platform/Whisker.h>

#include "Events/StoredEvent.h"

/// Telemetry events about faults in the library itself.
namespace kite::WhiskerEvents {

/// Reports an event that could not be encoded. It names the keys of the event's action info, never
/// their values: those are the host's data.
Whisker::DebugEvent jsonEncodingError(const StoredEvent& event, const EncodingError& errorContext);

}  // namespace kite::WhiskerEvents
