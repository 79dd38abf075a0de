#include "Inspector/RowsJSON.h"
#include "JSON/JSONWriter.h"

#include <simdjson.h>

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;

std::string textOf(const dom::element& value) { return simdjson::minify(value); }

/// A line of that operation, with these members if the data has them and they are not null.
class Line {
 public:
  explicit Line(std::string_view op) { add("op", "\"" + std::string(op) + "\""); }

  Line& add(std::string_view key, std::string_view json) {
    _text += _text.size() > 1 ? "," : "";
    JSONWriter(_text).string(key);
    _text += ":";
    _text += json;
    return *this;
  }
  Line& addMember(std::string_view key, const dom::object& data, std::string_view name) {
    dom::element value;
    if (data.at_key(name).get(value) == simdjson::SUCCESS && !value.is_null()) {
      add(key, textOf(value));
    }
    return *this;
  }
  std::string finished() const { return _text + "}"; }

 private:
  std::string _text = "{";
};

std::optional<std::string> updateLine(const dom::object& data) {
  dom::array lost;
  dom::array updated;
  dom::object info;
  if (data.at_key("lost_keys").get(lost) != simdjson::SUCCESS || lost.size() > 0 ||
      data.at_key("updated_keys").get(updated) != simdjson::SUCCESS ||
      data.at_key("new_user_info").get(info) != simdjson::SUCCESS) {
    return std::nullopt;  // no update takes a key away
  }
  std::string members = "{";
  for (const dom::element key : updated) {
    std::string_view name;
    dom::element value;
    if (key.get(name) != simdjson::SUCCESS || info.at_key(name).get(value) != simdjson::SUCCESS) {
      continue;
    }
    members += members.size() > 1 ? "," : "";
    JSONWriter(members).string(name);
    members += ":" + textOf(value);
  }
  return Line("updateUserInfo").add("with", members + "}").finished();
}

std::optional<std::string> sessionLine(const dom::object& data) {
  std::string_view subtype;
  if (data.at_key("subtype").get(subtype) != simdjson::SUCCESS) return std::nullopt;
  return Line(subtype == "session_start" ? "triggerSessionStart" : "triggerSessionEnd").finished();
}

std::string debugLine(const dom::object& data) {
  Line line("trackDebugEvent");
  for (const std::string_view key : {"severity", "message", "category", "domain", "code", "type",
                                     "description", "info", "file", "function", "line"}) {
    line.addMember(key, data, key);
  }
  return line.finished();
}

}  // namespace

std::optional<std::string> hostLine(const EventRecord& event) {
  dom::parser parser;
  dom::object data;
  if (parser.parse(event.data).get(data) != simdjson::SUCCESS) return std::nullopt;
  if (event.type == "UserAction") {
    return Line("trackUserAction")
        .addMember("name", data, "action_kind")
        .addMember("data", data, "action_info")
        .finished();
  }
  if (event.type == "DebugEvent") return debugLine(data);
  if (event.type == "UserInfoUpdated") return updateLine(data);
  if (event.type == "Session") return sessionLine(data);
  if (event.type == "Install" || event.type == "ExperimentSegmentReceived") return std::nullopt;
  std::string name;
  JSONWriter(name).string(event.type);
  return Line("trackCustomEvent").add("in", name).add("data", event.data).finished();
}

}  // namespace kite::tool
