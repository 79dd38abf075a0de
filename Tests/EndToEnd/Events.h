#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kite::test {

/// An event as it is stored, on either side.
struct Event {
  std::string id;
  std::string type;
  double timestamp = 0;
  double requestTimestamp = 0;
  std::string data;      ///< JSON text
  std::string userInfo;  ///< JSON text
  std::string userIDs;   ///< JSON text
  std::int64_t duplicates = 0;

  bool has(std::string_view json) const { return data.find(json) != data.npos; }
};

/// What waits in the queue of the host with that state folder.
std::vector<Event> queued(const std::filesystem::path& state);
/// What a collector has accepted, in its order.
std::vector<Event> collected(const std::filesystem::path& database);

std::vector<std::string> types(const std::vector<Event>& events);

/// One line that a collector wrote about a request.
struct Request {
  std::int64_t status = 0;
  std::int64_t errorCode = 0;
  std::int64_t events = 0;
  std::int64_t newEvents = 0;
  std::string fault;
};
Request parseRequest(const std::string& line);

}  // namespace kite::test
