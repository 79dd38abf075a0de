#pragma once

#include "Linux/Network/CurlTransfer.h"

#include <sys/types.h>

#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

namespace kite::Linux {

/// The thread that a session's requests run on, and the connections that it keeps.
///
/// The thread starts with the first request and sleeps while there is none.
class CurlLoop : public std::enable_shared_from_this<CurlLoop> {
 public:
  explicit CurlLoop(std::optional<std::filesystem::path> caFile);
  CurlLoop(const CurlLoop&) = delete;
  CurlLoop& operator=(const CurlLoop&) = delete;

  /// Any thread. An exchange that cannot be begun any more completes before this returns.
  void submit(Exchange exchange);

  /// Ends the thread, which completes all that is under way with an error. Does not wait for it.
  void stop();

 private:
  // Moves from hand to hand without a need for memory, so that none gets lost on its way.
  using Transfers = std::list<CurlTransfer>;

  const char* enqueue(Transfers& transfer);
  bool ensureThread();

  void work();
  bool admitSubmitted();
  void admit(Transfers transfer);
  int untilDeadline() const;
  void perform();
  void finishDone();
  void failAll(std::string_view description);
  void end();

  const std::optional<std::filesystem::path> _caFile;
  const pid_t _process;

  std::mutex _mutex;
  Transfers _submitted;
  std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> _multi;
  bool _hasThread = false;
  bool _isStopped = false;

  Transfers _transfers;  // the thread's own
};

}  // namespace kite::Linux
