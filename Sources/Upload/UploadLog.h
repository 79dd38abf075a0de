#pragma once

#include <Kite/Status.h>

#include "Base/Guarded.h"

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace kite {

/// How uploads ended, for those who want to know. Any thread.
class UploadLog {
 public:
  using Callback = std::function<void(const UploadReport&)>;

  /// `callback` gets the report of each upload from now on.
  void observe(Callback callback) {
    _callbacks.with([&](auto& callbacks) { callbacks.push_back(std::move(callback)); });
  }
  void ended(const UploadReport& report) {
    _last.set(report);
    for (const auto& callback : _callbacks.copy()) callback(report);
  }
  std::optional<UploadReport> last() const { return _last.copy(); }

 private:
  Guarded<std::vector<Callback>> _callbacks;
  Guarded<std::optional<UploadReport>> _last;
};

}  // namespace kite
