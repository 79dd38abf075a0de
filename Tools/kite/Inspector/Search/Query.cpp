#include "Inspector/Search/Query.h"

#include "Inspector/Search/Subject.h"

#include "Collector/JSONText.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <array>

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;

constexpr std::size_t longestShown = 200;

bool compares(double number, Relation relation, double wanted) {
  switch (relation) {
    case Relation::equal:
      return number == wanted;
    case Relation::greater:
      return number > wanted;
    case Relation::atLeast:
      return number >= wanted;
    case Relation::less:
      return number < wanted;
    case Relation::atMost:
      return number <= wanted;
  }
  return false;
}

bool isWanted(std::string_view text, const Term& term) {
  return term.isPrefix ? text.starts_with(term.value) : text == term.value;
}

bool isWanted(const dom::element& value, const Term& term) {
  double number = 0;
  if (value.get(number) == simdjson::SUCCESS) {
    return term.number && compares(number, term.relation, *term.number);
  }
  if (term.relation != Relation::equal) return false;
  std::string_view text;
  if (value.get(text) == simdjson::SUCCESS) return isWanted(text, term);
  bool flag = false;
  if (value.get(flag) == simdjson::SUCCESS) return term.value == (flag ? "true" : "false");
  return value.is_null() && term.value == "null";
}

bool isNumeric(TermField field) {
  return field == TermField::after || field == TermField::before ||
         field == TermField::duplicates || field == TermField::status || field == TermField::code;
}

/// Whether the term holds but for its negation.
bool isSo(const Term& term, Subject& subject) {
  if (term.field == TermField::word) return subject.has(term.value);
  if (term.field == TermField::bad) return subject.isBad();
  if (isNumeric(term.field)) {
    const auto number = subject.number(term.field);
    return number && compares(*number, term.relation, *term.number);
  }
  if (term.path.empty()) {
    const auto text = subject.text(term.field);
    return text && isWanted(*text, term);
  }
  const auto value = subject.json(term.field, term.path);
  const bool asksForPresence = term.field == TermField::hasData || term.field == TermField::hasInfo;
  return value && (asksForPresence || isWanted(*value, term));
}

bool holds(const Term& term, Subject& subject) { return isSo(term, subject) != term.isNegated; }

bool holdAll(const std::vector<Term>& terms, Subject& subject) {
  return std::ranges::all_of(terms, [&subject](const Term& term) { return holds(term, subject); });
}

std::string plainNumber(double number) { return fmt::format("{}", number); }

/// What the subject has in the term's place.
std::string shown(const Term& term, Subject& subject) {
  if (isNumeric(term.field)) {
    const auto number = subject.number(term.field);
    return number ? plainNumber(*number) : "missing";
  }
  if (term.path.empty()) {
    const auto text = subject.text(term.field);
    return text ? quotedJSON(clipped(*text, longestShown)) : "missing";
  }
  const auto value = subject.json(term.field, term.path);
  return value ? clipped(simdjson::minify(*value), longestShown) : "missing";
}

std::string wanted(const Term& term) {
  constexpr std::array<std::string_view, 5> signs{"", "> ", ">= ", "< ", "<= "};
  const auto sign = signs.at(static_cast<std::size_t>(term.relation));
  if (term.number) return fmt::format("{}{}", sign, plainNumber(*term.number));
  return quotedJSON(term.value) + (term.isPrefix ? " and more" : "");
}

std::string nameOf(const Term& term) {
  if (term.field == TermField::after || term.field == TermField::before) return "timestamp";
  return term.source.substr(0, term.source.find(':'));
}

std::string difference(const Term& term, Subject& subject) {
  if (term.isNegated) return fmt::format("{} does not hold", term.source);
  if (term.field == TermField::word)
    return fmt::format("{} is nowhere in it", quotedJSON(term.value));
  if (term.field == TermField::bad) return "it was accepted";
  if (term.field == TermField::hasData || term.field == TermField::hasInfo) {
    return fmt::format("{} is missing", term.source.substr(term.source.find(':') + 1));
  }
  return fmt::format("{} is {}, wanted {}", nameOf(term), shown(term, subject), wanted(term));
}

}  // namespace

bool Query::matches(const EventRecord& event) const {
  if (_terms.empty()) return true;
  EventSubject subject(event);
  return holdAll(_terms, subject);
}

bool Query::matches(const RequestRecord& request) const {
  RequestSubject subject(request);
  return holdAll(_terms, subject);
}

bool Query::matches(const SessionRecord& session) const {
  SessionSubject subject(session);
  return holdAll(_terms, subject);
}

std::vector<std::string> Query::differences(const EventRecord& event) const {
  EventSubject subject(event);
  std::vector<std::string> result;
  for (const Term& term : _terms) {
    if (!holds(term, subject)) result.push_back(difference(term, subject));
  }
  return result;
}

EventFilter Query::filter() const {
  EventFilter filter;
  for (const Term& term : _terms) {
    if (term.isNegated || term.isPrefix) continue;
    if (term.field == TermField::type) filter.type = term.value;
    if (term.field == TermField::client) filter.client = term.value;
    if (term.field == TermField::id) filter.id = term.value;
  }
  return filter;
}

}  // namespace kite::tool
