#include "Core/Event/EventText.h"

#include <initializer_list>
#include <utility>

namespace kite::EventText {
namespace {

using Failed = std::optional<EncodingError>;

std::uint32_t position(const std::string& out, std::size_t begin) {
  return static_cast<std::uint32_t>(out.size() - begin);
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
  const std::size_t begin = out.size();
  out += R"({"type":)";
  appendJSONString(out, head.type);
  out += R"(,"id":)";
  layout.idBegin = position(out, begin) + 1;
  appendJSONString(out, head.id);
  layout.idEnd = position(out, begin) - 1;
  out += R"(,"timestamp":)";
  if (auto error = appendJSON(out, head.timestamp)) return within({"timestamp"}, std::move(error));
  layout.stampBegin = position(out, begin);
  if (head.requestTimestamp) {
    if (auto error = appendRequestTimestamp(out, *head.requestTimestamp)) return error;
  }
  layout.stampEnd = position(out, begin);
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
