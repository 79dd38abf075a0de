#include "Upload/ServerBody.h"

#include "JSON/JSONWriter.h"

#include <string>

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

std::optional<EncodingError> ServerBody::write(Gzip& out, double requestTimestamp) const {
  constexpr std::size_t pieceSize = 32 * 1024;
  std::string text;
  if (auto error = appendHead(text, *this)) return error;
  bool isFirst = true;
  for (const auto& event : events) {
    if (!isFirst) text += ',';
    isFirst = false;
    if (auto error = event->appendStamped(text, requestTimestamp)) return error;
    if (text.size() < pieceSize) continue;
    out.write(text);
    text.clear();
  }
  text += "]}";
  out.write(text);
  return std::nullopt;
}

}  // namespace kite
