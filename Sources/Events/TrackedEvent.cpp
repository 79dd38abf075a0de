#include "Events/TrackedEvent.h"

#include "Base/UUIDText.h"
#include "JSON/JSONWriter.h"

#include <array>

namespace kite {
namespace {

JSONValue jsonOf(Usher::CreationType status) {
  constexpr std::array texts{"not_applicable", "just_generated", "read_from_file"};
  return texts.at(static_cast<std::size_t>(status));
}
JSONValue jsonOf(const UUID& id) { return id.text(); }
JSONValue jsonOf(Severity severity) { return text(severity); }
JSONValue jsonOf(std::uint64_t number) { return KiteValue(number).toJSONValue(); }
JSONValue jsonOf(const ShortText& text) { return text.view(); }
JSONValue jsonOf(const KiteData& data) { return toJSONObject(data); }
JSONValue jsonOf(const std::vector<std::string>& texts) {
  return JSONValue::Array(texts.begin(), texts.end());
}
template <class Plain>
JSONValue jsonOf(const Plain& plain) {
  return plain;
}
template <class Value>
JSONValue jsonOf(const std::optional<Value>& value) {
  return value ? jsonOf(*value) : JSONValue();
}

/// Makes the described members those of an object.
class ObjectMembers {
 public:
  template <class Value>
  void operator()(std::string_view key, const Value& value) {
    _entries.emplace_back(key, jsonOf(value));
  }
  template <class Value>
  void ifPresent(std::string_view key, const std::optional<Value>& value) {
    if (value) (*this)(key, *value);
  }
  JSONValue::Object object() && { return JSONValue::Object::fromUnsorted(std::move(_entries)); }

 private:
  JSONValue::Object::Entries _entries;
};

/// Writes the described members as they are described.
class WrittenMembers {
 public:
  explicit WrittenMembers(JSONWriter& writer) : _writer(writer) {}

  template <class Value>
  void operator()(std::string_view key, const Value& value) {
    _writer.key(key);
    write(value);
  }

 private:
  void write(const std::string& text) { _writer.string(text); }
  void write(const ShortText& text) { _writer.string(text.view()); }
  void write(const UUID& id) { _writer.string(UUIDText(id).view()); }
  void write(const KiteData& data) { _writer.value(data); }
  void write(const JSONValue::Object& members) { _writer.value(members); }
  template <class Value>
  void write(const std::optional<Value>& value) {
    value ? write(*value) : _writer.null();
  }
  template <class Value>
  void write(const Value& value) {
    _writer.value(jsonOf(value));
  }

  JSONWriter& _writer;
};

template <class Described>
JSONValue::Object objectOf(const Described& described) {
  ObjectMembers members;
  describe(members, described);
  return std::move(members).object();
}

struct Stamp {
  const UUID& id;
  double timestamp;
};
template <class Payload>
Stamp stampOf(const Payload& payload) {
  return {payload.id, payload.timestamp};
}
Stamp stampOf(const SessionStartPayload& start) { return {start.id, start.sessionStartDate}; }
Stamp stampOf(const SessionEndPayload& end) { return {end.id, end.sessionEndTimestamp}; }
Stamp stampOf(const SessionEvent& event) {
  return std::visit([](const auto& payload) { return stampOf(payload); }, event.subtype);
}
Stamp stampOf(const InstallEvent& event) { return stampOf(event.payload); }
Stamp stampOf(const CustomEvent& event) { return stampOf(event.payload); }

JSONValue::Object withStorefront(const std::optional<Storefront>& storefront,
                                 const JSONValue::Object& data) {
  return storefront ? objectOf(*storefront).merged(data) : data;
}

template <class Payload>
JSONValue::Object dataOf(const Payload& payload) {
  return objectOf(payload);
}
JSONValue::Object dataOf(const SessionEndPayload& end) {
  return end.sessionData.merged(objectOf(end));
}
JSONValue::Object dataOf(const SessionEvent& event) {
  const auto data = [](const auto& payload) { return dataOf(payload); };
  return withStorefront(event.storefront, std::visit(data, event.subtype));
}
JSONValue::Object dataOf(const InstallEvent& event) {
  return withStorefront(event.storefront, objectOf(event.payload));
}
JSONValue::Object dataOf(const CustomEvent& event) { return event.payload.data; }

/// Members that are not all described are put in order as an object is made of them.
template <class Kind>
void writeDataOf(const Kind& kind, JSONWriter& writer) {
  WrittenMembers members(writer);
  writer.beginObject();
  describe(members, kind);
  writer.endObject();
}
void writeDataOf(const SessionEvent& event, JSONWriter& writer) { writer.value(dataOf(event)); }
void writeDataOf(const InstallEvent& event, JSONWriter& writer) { writer.value(dataOf(event)); }
void writeDataOf(const CustomEvent& event, JSONWriter& writer) { writer.value(event.payload.data); }

}  // namespace

EventType TrackedEvent::type() const {
  using enum EventType::Case;
  constexpr std::array types{install, session,    userInfoUpdated,           userAction,
                             custom,  debugEvent, experimentSegmentsReceived};
  if (const auto* event = std::get_if<CustomEvent>(&_kind))
    return EventType::custom(event->tableName);
  return types.at(_kind.index());
}

std::string TrackedEvent::id() const {
  return std::visit([](const auto& kind) { return stampOf(kind).id.text(); }, _kind);
}

double TrackedEvent::timestamp() const {
  return std::visit([](const auto& kind) { return stampOf(kind).timestamp; }, _kind);
}

JSONValue::Object TrackedEvent::data() const {
  return std::visit([](const auto& kind) { return dataOf(kind); }, _kind);
}

void TrackedEvent::writeData(JSONWriter& writer) const {
  std::visit([&](const auto& kind) { writeDataOf(kind, writer); }, _kind);
}

void TrackedEvent::requireText() const {
  if (std::holds_alternative<CustomEvent>(_kind)) static_cast<void>(type().rawValue());
  if (const auto* debug = std::get_if<DebugEvent::Payload>(&_kind))
    KiteValue(debug->line).requireJSON();
}

}  // namespace kite
