#include "Application/UploadLines.h"

#include <string>
#include <utility>

namespace kite::Linux {
namespace {

std::string counted(std::uint64_t events) {
  return std::to_string(events) + (events == 1 ? " event" : " events");
}

}  // namespace

void UploadLines::ended(const UploadReport& upload) {
  if (upload.endpoint.empty())
    return _print("[Kite] Dropped " + counted(upload.events) + ": " + upload.error.value_or(""));
  const bool fails = upload.error.has_value();
  const std::scoped_lock guard(_mutex);
  if (std::exchange(_areFailing, fails) == fails) return;
  _print(fails ? "[Kite] Uploads to " + upload.endpoint + " fail, " + counted(upload.pending) +
                     " pending: " + *upload.error
               : "[Kite] Uploads to " + upload.endpoint + " work again, " + counted(upload.events) +
                     " delivered");
}

void UploadLines::lost(std::uint64_t events) const {
  _print("[Kite] " + counted(events) + " could not be saved before the end, and may be lost");
}

}  // namespace kite::Linux
