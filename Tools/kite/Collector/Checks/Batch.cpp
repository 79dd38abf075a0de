#include "Collector/Checks/Batch.h"

#include "Collector/Checks/EventRules.h"
#include "Collector/Checks/FactsOfTree.h"
#include "Collector/Checks/ObjectRules.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <array>
#include <optional>

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;
namespace ondemand = simdjson::ondemand;

constexpr std::array bodyRules{
    MemberRule{"delta", shape::isNumber, "a number", false},
    MemberRule{"last_event_timestamp", shape::isNumber, "a number", false},
    MemberRule{"events", shape::isArray, "an array"}};

// The members that these two read were checked before.
double number(const dom::element& event, std::string_view key) { return event.at_key(key); }

std::string text(const dom::element& event, std::string_view key) {
  return std::string(std::string_view(event.at_key(key)));
}

std::optional<Refusal> refusedBody(const dom::element& body) {
  dom::object object;
  if (body.get(object) != simdjson::SUCCESS) return invalidFormat("the body must be an object");
  if (auto found = violation(object, bodyRules, OtherMembers::refused, "")) {
    return invalidFormat("the body: " + *found);
  }
  if (dom::array(body["events"]).size() == 0) return invalidFormat("the body: events is empty");
  if (auto key = repeatedKey(body)) {
    return invalidFormat(fmt::format("the body: a key is repeated in one object: {}", *key));
  }
  return std::nullopt;
}

std::optional<Refusal> refusedEvent(const dom::array& events, std::string_view app) {
  std::size_t position = 0;
  for (const dom::element& event : events) {
    if (auto found = eventViolation(event, position++, app)) return invalidEvent(*found);
  }
  const double requestTimestamp = number(events.at(0), "request_timestamp");
  for (const dom::element& event : events) {
    if (number(event, "request_timestamp") != requestTimestamp) {
      return invalidEvent(fmt::format("event {}: request_timestamp must be the same in all events",
                                      text(event, "id")));
    }
  }
  return std::nullopt;
}

std::string_view withoutSpaceBehind(std::string_view json) {
  return json.substr(0, json.find_last_not_of(" \t\r\n") + 1);
}

/// Copies the text of the members "info", "ids" and "data", which are objects, into `into`.
void readTexts(ondemand::object object, ReceivedEvent& into) {
  for (auto member : object) {
    const std::string_view key = member.unescaped_key();
    if (key == "user") {
      readTexts(member.value().get_object(), into);
    } else if (key == "info" || key == "ids" || key == "data") {
      std::string& text = key == "info" ? into.userInfo : key == "ids" ? into.userIDs : into.data;
      const std::string_view json = member.value().get_object().value().raw_json();
      text = withoutSpaceBehind(json);
    }
  }
}

std::vector<ReceivedEvent> readEvents(const dom::array& events) {
  std::vector<ReceivedEvent> read;
  read.reserve(events.size());
  for (const dom::element& event : events) {
    ReceivedEvent& each = read.emplace_back();
    each.id = text(event, "id");
    each.type = text(event, "type");
    each.timestamp = number(event, "timestamp");
    each.facts = factsOfTree(each.id, each.type, event.at_key("data"));
  }
  return read;
}

/// A tree of values does not know its text, so the text is walked a second time for it.
void readTexts(const std::string& json, ondemand::parser& parser,
               std::vector<ReceivedEvent>& events) {
  ondemand::document document = parser.iterate(json.data(), json.size(), json.capacity());
  for (auto member : document.get_object()) {
    if (std::string_view(member.unescaped_key()) != "events") continue;
    auto next = events.begin();
    for (auto event : member.value().get_array()) readTexts(event.get_object(), *next++);
  }
}

/// A parser takes ten times the text's size: too much for the kernel to hand out with each request,
/// and to keep for the largest.
struct Parsers {
  dom::parser tree;
  ondemand::parser texts;
};
constexpr std::size_t largestTextOfKeptParsers = 4 * 1024 * 1024;

Result<Batch, Refusal> readBatch(const std::string& json, std::string_view app, Parsers& parsers) {
  dom::element body;
  if (const auto error = parsers.tree.parse(json).get(body)) {
    return Failure{invalidFormat(fmt::format("not JSON: {}", simdjson::error_message(error)))};
  }
  if (auto refusal = refusedBody(body)) return Failure{*std::move(refusal)};
  const dom::array events = body["events"];
  if (auto refusal = refusedEvent(events, app)) return Failure{*std::move(refusal)};

  Batch batch{.requestTimestamp = number(events.at(0), "request_timestamp"),
              .events = readEvents(events),
              .textBytes = json.size()};
  try {
    readTexts(json, parsers.texts, batch.events);
  } catch (const simdjson::simdjson_error& error) {
    return Failure{invalidFormat(fmt::format("not JSON: {}", error.what()))};
  }
  return batch;
}

}  // namespace

Result<Batch, Refusal> readBatch(std::string json, std::string_view app) {
  json.reserve(json.size() + simdjson::SIMDJSON_PADDING);
  thread_local Parsers kept;
  if (json.size() <= largestTextOfKeptParsers) return readBatch(json, app, kept);
  Parsers parsers;
  return readBatch(json, app, parsers);
}

}  // namespace kite::tool
