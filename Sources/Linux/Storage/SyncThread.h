#pragma once

#include "Linux/Storage/StoreFiles.h"

#include <memory>

namespace kite::Linux {

/// Puts files on the medium within a second, on a thread that is started when it is first needed.
class SyncThread {
 public:
  SyncThread();
  /// What was handed over is synced all the same; nobody waits for it.
  ~SyncThread();
  SyncThread(const SyncThread&) = delete;
  SyncThread& operator=(const SyncThread&) = delete;

  void syncSoon(std::shared_ptr<LogFile> file);

 private:
  struct Shared;
  static void run(Shared& shared);

  std::shared_ptr<Shared> _shared;
  int _process;
};

}  // namespace kite::Linux
