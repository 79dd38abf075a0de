#include "Common/StatusJSON.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kite::tool {
namespace {

JSONValue number(std::uint64_t count) { return static_cast<std::int64_t>(count); }

template <class T>
JSONValue orNull(const std::optional<T>& value) {
  return value ? JSONValue(*value) : JSONValue();
}

std::string textOf(DrainEnd end) {
  switch (end) {
    case DrainEnd::persisted:
      return "persisted";
    case DrainEnd::delivered:
      return "delivered";
    case DrainEnd::deadline:
      return "deadline";
    case DrainEnd::notPersisted:
      return "notPersisted";
    case DrainEnd::unreachable:
      return "unreachable";
    case DrainEnd::refused:
      return "refused";
    case DrainEnd::notReadable:
      return "notReadable";
    case DrainEnd::notRunning:
      return "notRunning";
  }
  return {};
}

JSONValue toJSONValue(const DroppedEvents& dropped) {
  return JSONValue::Object{{"noConsent", number(dropped.noConsent)},
                           {"notStarted", number(dropped.notStarted)},
                           {"inBackground", number(dropped.inBackground)},
                           {"notEncodable", number(dropped.notEncodable)},
                           {"notUploadable", number(dropped.notUploadable)},
                           {"lostOnDisk", number(dropped.lostOnDisk)}};
}

JSONValue toJSONValue(const UploadReport& upload) {
  const auto status = upload.statusCode ? std::optional<std::int64_t>(*upload.statusCode)
                                        : std::optional<std::int64_t>();
  return JSONValue::Object{{"time", upload.time.secondsSince1970},
                           {"endpoint", upload.endpoint},
                           {"status", orNull(status)},
                           {"error", orNull(upload.error)},
                           {"events", number(upload.events)}};
}

}  // namespace

JSONValue toJSONValue(const DrainReport& report) {
  return JSONValue::Object{{"delivered", number(report.delivered)},
                           {"persisted", number(report.persisted)},
                           {"inMemory", number(report.inMemory)},
                           {"end", textOf(report.end)}};
}

JSONValue toJSONValue(const Status& status) {
  const auto& ledger = status.ledger;
  return JSONValue::Object{
      {"tracked", number(ledger.tracked)},
      {"pending", number(ledger.pending)},
      {"delivered", number(ledger.delivered)},
      {"dropped", toJSONValue(ledger.dropped)},
      {"inMemory", number(status.inMemory)},
      {"onDisk", number(status.onDisk)},
      {"oldestAge", orNull(status.oldestAge)},
      {"lastUpload", status.lastUpload ? toJSONValue(*status.lastUpload) : JSONValue()}};
}

}  // namespace kite::tool
