#include "Inspector/RowsJSON.h"

#include "Collector/EventFacts.h"
#include "Collector/Store/SessionNotes.h"
#include "JSON/JSONWriter.h"

#include <string_view>

namespace kite::tool {
namespace {

void put(JSONWriter& json, std::string_view key, std::string_view text) {
  json.key(key);
  json.string(text);
}

void put(JSONWriter& json, std::string_view key, std::int64_t number) {
  json.key(key);
  json.number(number);
}

void put(JSONWriter& json, std::string_view key, double number) {
  json.key(key);
  json.number(number);
}

void putFlag(JSONWriter& json, std::string_view key, bool flag) {
  json.key(key);
  json.boolean(flag);
}

template <class Value>
void put(JSONWriter& json, std::string_view key, const std::optional<Value>& value) {
  if (value) return put(json, key, *value);
  json.key(key);
  json.null();
}

void putRaw(JSONWriter& json, std::string_view key, std::string_view text) {
  json.key(key);
  json.raw(text);
}

/// Within its strings they are escaped.
std::string withoutLineEnds(std::string text) {
  std::erase_if(text, [](char letter) { return letter == '\r' || letter == '\n'; });
  return text;
}

void putRow(JSONWriter& json, const EventRecord& event) {
  const EventFacts facts = factsOf(event.id, event.type, event.data);
  put(json, "seq", event.seq);
  put(json, "id", event.id);
  put(json, "type", event.type);
  put(json, "name", facts.name);
  put(json, "timestamp", event.timestamp);
  put(json, "received_at", event.receivedAt);
  put(json, "app", event.app);
  put(json, "client", event.client);
  put(json, "session", facts.session);
  putFlag(json, "tester", event.isTester);
  put(json, "duplicates", event.duplicates);
}

/// JSON as it was received, which may have line ends between its values.
void putReceived(JSONWriter& json, std::string_view key, const std::string& text) {
  const bool isOneLine = text.find_first_of("\r\n") == std::string::npos;
  putRaw(json, key, isOneLine ? text : withoutLineEnds(text));
}

void putRecord(JSONWriter& json, const EventRecord& event) {
  putRow(json, event);
  put(json, "request_timestamp", event.requestTimestamp);
  putReceived(json, "user_info", event.userInfo);
  putReceived(json, "user_ids", event.userIDs);
  putReceived(json, "data", event.data);
}

std::optional<std::int64_t> integer(const std::optional<int>& number) {
  return number ? std::optional<std::int64_t>(*number) : std::nullopt;
}

/// One object, whose members `body` puts.
template <class Body>
std::string object(const Body& body) {
  std::string text;
  JSONWriter json(text);
  json.beginObject();
  body(json);
  json.endObject();
  json.finish();
  return text;
}

/// An array of objects, of which `putRow` puts the members of each.
template <class Row, class PutRow>
std::string array(const std::vector<Row>& rows, const PutRow& putRow) {
  std::string text;
  JSONWriter json(text);
  json.beginArray();
  for (const Row& row : rows) {
    json.beginObject();
    putRow(json, row);
    json.endObject();
  }
  json.endArray();
  json.finish();
  return text;
}

}  // namespace

std::string rowJSON(const EventRecord& event) {
  return object([&event](JSONWriter& json) { putRow(json, event); });
}

std::string recordJSON(const EventRecord& event) {
  return object([&event](JSONWriter& json) { putRecord(json, event); });
}

std::string detailJSON(const EventRecord& event, const std::optional<EventRecord>& before) {
  return object([&](JSONWriter& json) {
    putRecord(json, event);
    putRaw(json, "previous_user_info", before ? before->userInfo : "null");
    putRaw(json, "line", hostLine(event).value_or("null"));
  });
}

std::string requestJSON(const RequestRecord& request) {
  return object([&request](JSONWriter& json) {
    put(json, "seq", request.seq);
    put(json, "received_at", request.receivedAt);
    put(json, "method", request.method);
    put(json, "path", request.path);
    put(json, "endpoint", request.endpoint);
    put(json, "status", std::int64_t{request.status});
    put(json, "error_code", integer(request.errorCode));
    put(json, "message", request.message);
    put(json, "fault", request.fault);
    put(json, "bytes", request.bytes);
    put(json, "unpacked_bytes", request.unpackedBytes);
    put(json, "events", request.newEvents + request.duplicates);
    put(json, "new", request.newEvents);
    put(json, "duplicates", request.duplicates);
    put(json, "duration", request.duration);
    put(json, "attempt", request.attempt);
    put(json, "client", request.client);
    put(json, "request_id", request.requestID);
    putFlag(json, "has_body", request.hasBody);
  });
}

std::string sessionJSON(const SessionRecord& session, const std::optional<SessionRecord>& before,
                        bool isOpen) {
  const bool overlaps = before && session.start < before->end;
  std::optional<double> gap;
  if (before && !overlaps) gap = session.start - before->end;
  return object([&](JSONWriter& json) {
    put(json, "id", session.id);
    put(json, "client", session.client);
    put(json, "start", session.start);
    put(json, "end", session.end);
    putFlag(json, "ended", session.hasEnded);
    putFlag(json, "crashed", session.hasCrashed);
    putFlag(json, "open", isOpen);
    put(json, "events", session.events);
    putRaw(json, "background", intervalsJSON(session));
    put(json, "gap_before", gap);
    putFlag(json, "overlaps", overlaps);
  });
}

std::string clientJSON(const ClientRecord& client) {
  return object([&client](JSONWriter& json) {
    put(json, "client", client.client);
    put(json, "app", client.app);
    put(json, "events", client.events);
    put(json, "sessions", client.sessions);
    put(json, "first", client.first);
    put(json, "last", client.last);
    putFlag(json, "tester", client.isTester);
  });
}

std::string repeatedJSON(const std::vector<RepeatedEvent>& repeated) {
  return array(repeated, [](JSONWriter& json, const RepeatedEvent& event) {
    put(json, "seq", event.seq);
    put(json, "id", event.id);
    put(json, "duplicates", event.duplicates);
  });
}

std::string faultsJSON(const std::vector<Fault>& faults) {
  return array(faults, [](JSONWriter& json, const Fault& fault) {
    put(json, "fault", fault.text);
    put(json, "left", static_cast<std::int64_t>(fault.count));
  });
}

}  // namespace kite::tool
