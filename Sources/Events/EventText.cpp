#include "Events/EventText.h"

#include "Events/User.h"

namespace kite::EventText {
namespace {

std::uint32_t position(const JSONWriter& writer) {
  return static_cast<std::uint32_t>(writer.position());
}

void writeRequestTimestamp(JSONWriter& writer, double seconds) {
  writer.key("request_timestamp");
  writer.number(seconds);
}

}  // namespace

HeadLayout writeHead(JSONWriter& writer, const Head& head) {
  HeadLayout layout;
  writer.beginObject();
  writer.key("type");
  writer.string(head.type);
  writer.key("id");
  layout.idBegin = position(writer) + 1;
  writer.string(head.id);
  layout.idEnd = position(writer) - 1;
  writer.key("timestamp");
  writer.number(head.timestamp);
  layout.stampBegin = position(writer);
  if (head.requestTimestamp) writeRequestTimestamp(writer, *head.requestTimestamp);
  layout.stampEnd = position(writer);
  return layout;
}

void writeUser(JSONWriter& writer, std::string_view app, const User& user) {
  writer.key("app");
  writer.string(app);
  writer.key("user");
  writer.beginObject();
  writer.key("info");
  writer.value(user.info);
  writer.key("ids");
  writer.beginObject();
  for (const auto& [name, id] : user.ids) {
    writer.key(name);
    writer.string(id);
  }
  writer.endObject();
  writer.endObject();
}

std::optional<EncodingError> appendRequestTimestamp(std::string& out, double seconds) {
  JSONWriter writer(out);
  writer.resumeObject();
  writeRequestTimestamp(writer, seconds);
  return writer.finish();
}

}  // namespace kite::EventText
