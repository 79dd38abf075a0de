#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Base/UUID.h>
#include <Kite/Platform/NotificationCenter.h>

#include <functional>
#include <memory>

namespace kite {

/// Identifies one registered handler.
struct CancelToken {
  UUID uuid;

  friend auto operator<=>(const CancelToken&, const CancelToken&) = default;
};

/// Signals the start and the end of sessions. Copies share their handlers.
///
/// The standard ones call handlers in the order in which they were registered, but at a session's
/// end those of the host first, then the session manager's, which records the end, the storage's,
/// which writes the queue, and the synchronization's.
struct KITE_EXPORT SessionListener {
  using Handler = std::function<void()>;

  std::function<CancelToken(Handler)> onSessionStart;
  std::function<CancelToken(Handler)> onSessionEnd;
  std::function<void(CancelToken)> detachSessionStart;
  std::function<void(CancelToken)> detachSessionEnd;
  /// True when the host drives the sessions by hand.
  bool disableAutomaticSession = false;

  /// Sessions follow the application in and out of the foreground.
  static SessionListener notificationCenter(std::shared_ptr<NotificationCenter> center);
  /// Sessions begin and end when the host says so.
  static struct ManualSessionListener manual();
};

struct ManualSessionListener {
  SessionListener witness;                    ///< to be handed to the library
  std::function<void()> triggerSessionStart;  ///< handlers run on the caller's thread
  std::function<void()> triggerSessionEnd;
};

}  // namespace kite

template <>
struct std::hash<kite::CancelToken> {
  std::size_t operator()(const kite::CancelToken& token) const noexcept {
    return std::hash<std::string_view>{}(
        {reinterpret_cast<const char*>(token.uuid.bytes.data()), token.uuid.bytes.size()});
  }
};
