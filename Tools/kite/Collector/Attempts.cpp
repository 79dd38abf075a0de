#include "Collector/Attempts.h"

namespace kite::tool {
namespace {

constexpr std::size_t mostClients = 10'000;  // that fail at once; their names are anyone's

}  // namespace

std::int64_t Attempts::note(const ReceivedRequest& request, const RequestReport& report) {
  const std::string client(request.header("Kite-Client-ID"));
  const std::scoped_lock lock(_mutex);
  const auto found = _failures.find(client);
  const std::int64_t attempt = found == _failures.end() ? 1 : found->second + 1;
  if (report.newEvents + report.duplicates > 0) {
    if (found != _failures.end()) _failures.erase(found);
  } else if (found != _failures.end() || _failures.size() < mostClients) {
    _failures[client] = attempt;
  }
  return attempt;
}

}  // namespace kite::tool
