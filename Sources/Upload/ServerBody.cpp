#include "Upload/ServerBody.h"

#include "JSON/JSONWriter.h"

#include <string>
#include <utility>

namespace kite {

std::optional<EncodingError> ServerBody::write(Gzip& out, double requestTimestamp) const {
  constexpr std::size_t pieceSize = 32 * 1024;
  std::string text;
  JSONWriter writer(text);
  writer.beginObject();
  for (const auto& [key, number] :
       {std::pair("delta", delta), std::pair("last_event_timestamp", lastEventTimestamp)}) {
    if (!number) continue;
    writer.key(key);
    writer.number(*number);
  }
  writer.key("events");
  writer.beginArray();
  if (writer.error()) return writer.error();
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
