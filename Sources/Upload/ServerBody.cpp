#include "Upload/ServerBody.h"

#include "JSON/JSONWriter.h"

#include <utility>

namespace kite {
namespace {

/// What comes before the first event.
std::optional<EncodingError> appendHead(std::string& text, const ServerBody& body) {
  JSONWriter writer(text);
  writer.beginObject();
  if (body.delta) {
    writer.key("delta");
    writer.number(*body.delta);
  }
  if (body.lastEventTimestamp) {
    writer.key("last_event_timestamp");
    writer.number(*body.lastEventTimestamp);
  }
  writer.key("events");
  writer.beginArray();
  return writer.finish();
}

}  // namespace

Result<std::string, EncodingError> ServerBody::text(double requestTimestamp) const {
  constexpr std::size_t aroundEvents = 128, stamp = 48;
  std::size_t size = aroundEvents;
  for (const auto& event : events) size += event->size() + stamp;
  std::string text;
  text.reserve(size);
  if (auto error = appendHead(text, *this)) return Failure{*std::move(error)};
  bool isFirst = true;
  for (const auto& event : events) {
    if (!isFirst) text += ',';
    isFirst = false;
    if (auto error = event->appendStamped(text, requestTimestamp))
      return Failure{*std::move(error)};
  }
  text += "]}";
  return text;
}

}  // namespace kite
