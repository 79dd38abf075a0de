#pragma once

#include <Kite/SessionListener.h>

namespace kite {

/// What a session's end asks of the library, in this order: what was recorded first can be written,
/// and what was written uploaded.
enum class SessionEndStep { ofTheHost, recordEnd, writeQueue, upload };

/// A handler that says which step it is. The standard listeners call it in its turn; to any other
/// listener it is a handler like all.
struct SessionEndHandler {
  SessionEndStep step;
  SessionListener::Handler handle;

  void operator()() const { handle(); }
};

/// A handler that is no `SessionEndHandler` is the host's.
inline SessionEndStep stepOf(const SessionListener::Handler& handler) {
  const auto* const ours = handler.target<SessionEndHandler>();
  return ours ? ours->step : SessionEndStep::ofTheHost;
}

}  // namespace kite
