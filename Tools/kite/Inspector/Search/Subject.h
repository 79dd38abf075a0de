#pragma once

#include "Collector/EventFacts.h"
#include "Inspector/Search/Query.h"

#include <simdjson.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

/// What a query is asked about.
class Subject {
 public:
  virtual ~Subject() = default;

  /// The value of a field that is a text, if the row has it.
  virtual std::optional<std::string> text(TermField field) = 0;
  /// The value of a field that is a number. Of `after` and `before` it is the row's time.
  virtual std::optional<double> number(TermField field) = 0;
  /// What is at that path of the event's data or user info.
  virtual std::optional<simdjson::dom::element> json(TermField, const std::vector<std::string>&) {
    return std::nullopt;
  }
  virtual bool isBad() { return false; }
  /// Whether the word is in it, whatever the case of its letters.
  virtual bool has(std::string_view word) = 0;
};

class EventSubject final : public Subject {
 public:
  explicit EventSubject(const EventRecord& event) : _event(event) {}

  std::optional<std::string> text(TermField field) override;
  std::optional<double> number(TermField field) override;
  std::optional<simdjson::dom::element> json(TermField field,
                                             const std::vector<std::string>& path) override;
  bool has(std::string_view word) override;

 private:
  /// A JSON text, parsed when it is first asked for.
  struct Parsed {
    simdjson::dom::parser parser{};
    std::optional<simdjson::dom::element> root = {};
    bool isDone = false;
  };

  const EventFacts& facts();

  const EventRecord& _event;
  std::optional<EventFacts> _facts;
  Parsed _data;
  Parsed _info;
};

class RequestSubject final : public Subject {
 public:
  explicit RequestSubject(const RequestRecord& request) : _request(request) {}

  std::optional<std::string> text(TermField field) override;
  std::optional<double> number(TermField field) override;
  bool isBad() override { return _request.isRefused(); }
  bool has(std::string_view word) override;

 private:
  const RequestRecord& _request;
};

class SessionSubject final : public Subject {
 public:
  explicit SessionSubject(const SessionRecord& session) : _session(session) {}

  std::optional<std::string> text(TermField field) override;
  std::optional<double> number(TermField field) override;
  bool has(std::string_view word) override;

 private:
  const SessionRecord& _session;
};

}  // namespace kite::tool
