#pragma once

#include <Kite/Status.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string_view>
#include <utility>

namespace kite::Linux {

/// Tells people when uploads begin to fail and when they work again. Any thread.
class UploadLines {
 public:
  explicit UploadLines(std::function<void(std::string_view line)> print)
      : _print(std::move(print)) {}

  void ended(const UploadReport& upload);
  /// At the end of the process, of events that are in memory alone.
  void lost(std::uint64_t events) const;

 private:
  const std::function<void(std::string_view line)> _print;
  std::mutex _mutex;
  bool _areFailing = false;
};

}  // namespace kite::Linux
