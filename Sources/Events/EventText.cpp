#include "Events/EventText.h"

#include "JSON/Pen.h"

#include <utility>

namespace kite::EventText {
namespace {

using Failed = std::optional<EncodingError>;

std::uint32_t distance(std::size_t begin, std::size_t end) {
  return static_cast<std::uint32_t>(end - begin);
}

void appendIds(std::string& out, const User& user) {
  char separator = '{';
  for (const auto& [name, id] : user.ids) {
    out += separator;
    appendJSONString(out, name);
    out += ':';
    appendJSONString(out, id);
    separator = ',';
  }
  out += user.ids.empty() ? "{}" : "}";
}

}  // namespace

Failed appendHead(std::string& out, const Head& head, HeadLayout& layout) {
  constexpr std::size_t roomForNames = 64;
  const std::size_t begin = out.size();
  {
    Pen pen(out, head.type.size() + head.id.size() + longestJSONNumber + roomForNames);
    pen.put(R"({"type":)");
    pen.putString(head.type);
    pen.put(R"(,"id":)");
    layout.idBegin = distance(begin, pen.position()) + 1;
    pen.putString(head.id);
    layout.idEnd = distance(begin, pen.position()) - 1;
    pen.put(R"(,"timestamp":)");
    if (auto error = pen.putReal(head.timestamp)) return within({"timestamp"}, std::move(error));
  }
  layout.stampBegin = distance(begin, out.size());
  if (head.requestTimestamp) {
    if (auto error = appendRequestTimestamp(out, *head.requestTimestamp)) return error;
  }
  layout.stampEnd = distance(begin, out.size());
  return std::nullopt;
}

Failed appendRequestTimestamp(std::string& out, double seconds) {
  out += R"(,"request_timestamp":)";
  return within({"request_timestamp"}, appendJSON(out, seconds));
}

Failed appendUser(std::string& out, std::string_view app, const User& user) {
  constexpr int eventAndUser = 2;
  out += R"(,"app":)";
  appendJSONString(out, app);
  out += R"(,"user":{"info":)";
  if (auto error = appendJSON(out, user.info, eventAndUser))
    return within({"user", "info"}, std::move(error));
  out += R"(,"ids":)";
  appendIds(out, user);
  out += '}';
  return std::nullopt;
}

template <class Data>
Failed appendDataOf(std::string& out, const Data& data) {
  constexpr int event = 1;
  out += R"(,"data":)";
  if (auto error = appendJSON(out, data, event)) return within({"data"}, std::move(error));
  out += '}';
  return std::nullopt;
}

Failed appendData(std::string& out, const JSONValue::Object& data) {
  return appendDataOf(out, data);
}
Failed appendData(std::string& out, const UserAction::Payload& data) {
  return appendDataOf(out, data);
}

}  // namespace kite::EventText
