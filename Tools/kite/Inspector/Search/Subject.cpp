#include "Inspector/Search/Subject.h"

#include "Common/LowerCase.h"

#include <algorithm>
#include <charconv>

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;

bool isIn(std::string_view text, std::string_view word) {
  const auto isSame = [](char one, char other) { return lowerCase(one) == lowerCase(other); };
  return word.empty() ||
         std::search(text.begin(), text.end(), word.begin(), word.end(), isSame) != text.end();
}

std::optional<dom::element> below(dom::element element, const std::string& key) {
  dom::object object;
  dom::element found;
  if (element.get(object) == simdjson::SUCCESS) {
    if (object.at_key(key).get(found) == simdjson::SUCCESS) return found;
    return std::nullopt;
  }
  dom::array array;
  std::size_t index = 0;
  const auto end = key.data() + key.size();
  const auto [rest, error] = std::from_chars(key.data(), end, index);
  if (element.get(array) != simdjson::SUCCESS || error != std::errc() || rest != end) {
    return std::nullopt;
  }
  if (array.at(index).get(found) == simdjson::SUCCESS) return found;
  return std::nullopt;
}

}  // namespace

const EventFacts& EventSubject::facts() {
  if (!_facts) _facts = factsOf(_event.id, _event.type, _event.data);
  return *_facts;
}

std::optional<std::string> EventSubject::text(TermField field) {
  switch (field) {
    case TermField::type:
      return _event.type;
    case TermField::name:
      return facts().name;
    case TermField::session:
      return facts().session;
    case TermField::client:
      return _event.client;
    case TermField::id:
      return _event.id;
    case TermField::app:
      return _event.app;
    case TermField::tester:
      return _event.isTester ? "true" : "false";
    default:
      return std::nullopt;
  }
}

std::optional<double> EventSubject::number(TermField field) {
  if (field == TermField::after || field == TermField::before) return _event.timestamp;
  if (field == TermField::duplicates) return static_cast<double>(_event.duplicates);
  return std::nullopt;
}

std::optional<dom::element> EventSubject::json(TermField field,
                                               const std::vector<std::string>& path) {
  const bool isData = field == TermField::data || field == TermField::hasData;
  Parsed& parsed = isData ? _data : _info;
  if (!parsed.isDone) {
    parsed.isDone = true;
    dom::element root;
    if (parsed.parser.parse(isData ? _event.data : _event.userInfo).get(root) ==
        simdjson::SUCCESS) {
      parsed.root = root;
    }
  }
  auto found = parsed.root;
  for (const std::string& key : path) {
    if (found) found = below(*found, key);
  }
  return found;
}

bool EventSubject::has(std::string_view word) {
  return isIn(_event.data, word) || isIn(_event.type, word) || isIn(_event.id, word) ||
         isIn(facts().name.value_or(""), word);
}

std::optional<std::string> RequestSubject::text(TermField field) {
  if (field == TermField::client) return _request.client;
  if (field == TermField::id) return _request.requestID;
  return std::nullopt;
}

std::optional<double> RequestSubject::number(TermField field) {
  switch (field) {
    case TermField::after:
    case TermField::before:
      return _request.receivedAt;
    case TermField::status:
      return _request.status;
    case TermField::code:
      return _request.errorCode ? std::optional<double>(*_request.errorCode) : std::nullopt;
    case TermField::duplicates:
      return static_cast<double>(_request.duplicates);
    default:
      return std::nullopt;
  }
}

bool RequestSubject::has(std::string_view word) {
  return isIn(_request.endpoint, word) || isIn(_request.message.value_or(""), word) ||
         isIn(_request.fault.value_or(""), word) || isIn(_request.client.value_or(""), word) ||
         isIn(_request.requestID.value_or(""), word);
}

std::optional<std::string> SessionSubject::text(TermField field) {
  if (field == TermField::client) return _session.client;
  if (field == TermField::id || field == TermField::session) return _session.id;
  return std::nullopt;
}

std::optional<double> SessionSubject::number(TermField field) {
  if (field == TermField::after) return _session.end;
  if (field == TermField::before) return _session.start;
  return std::nullopt;
}

bool SessionSubject::has(std::string_view word) {
  return isIn(_session.id, word) || isIn(_session.client, word);
}

}  // namespace kite::tool
