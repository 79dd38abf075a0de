#include "Upload/ServerBody.h"

#include <string>
#include <string_view>

namespace kite {
namespace {

std::optional<EncodingError> appendNumber(std::string& text, std::string_view key,
                                          std::optional<double> number) {
  if (!number) return std::nullopt;
  appendJSONString(text, key);
  text += ':';
  if (auto error = appendJSON(text, *number)) return error;
  text += ',';
  return std::nullopt;
}

}  // namespace

std::optional<EncodingError> ServerBody::write(Gzip& out, double requestTimestamp) const {
  constexpr std::size_t pieceSize = 32 * 1024;
  std::string text = "{";
  if (auto error = appendNumber(text, "delta", delta)) return error;
  if (auto error = appendNumber(text, "last_event_timestamp", lastEventTimestamp)) return error;
  text += R"("events":[)";
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
