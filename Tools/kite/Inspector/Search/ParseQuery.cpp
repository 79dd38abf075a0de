#include "Inspector/Search/ParseTime.h"
#include "Inspector/Search/Query.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace kite::tool {
namespace {

using ParsedTerm = Result<Term, std::string>;

struct NamedTermField {
  std::string_view key;
  TermField field;
};
constexpr std::array fields{
    NamedTermField{"type", TermField::type},       NamedTermField{"name", TermField::name},
    NamedTermField{"session", TermField::session}, NamedTermField{"client", TermField::client},
    NamedTermField{"id", TermField::id},           NamedTermField{"app", TermField::app},
    NamedTermField{"tester", TermField::tester},   NamedTermField{"after", TermField::after},
    NamedTermField{"before", TermField::before},   NamedTermField{"dup", TermField::duplicates},
    NamedTermField{"status", TermField::status},   NamedTermField{"code", TermField::code},
    NamedTermField{"bad", TermField::bad}};

/// A term's text, taken apart.
struct Piece {
  std::string source;
  std::string key;  ///< empty for a bare word
  std::string value;
  bool isNegated = false;
  bool isQuoted = false;
  bool hasKey = false;
};

/// Reads a quoted text, whose opening is at `at`; false when it does not end.
bool readQuoted(std::string_view text, std::size_t& at, std::string& value) {
  for (++at; at < text.size(); ++at) {
    if (text[at] == '"') {
      ++at;
      return true;
    }
    if (text[at] == '\\' && at + 1 < text.size()) ++at;
    value += text[at];
  }
  return false;
}

/// The next term; a failure when its quotes do not end.
Result<Piece, std::string> readPiece(std::string_view text, std::size_t& at) {
  const std::size_t begin = at;
  Piece piece;
  if (text[at] == '-' && at + 1 < text.size() && text[at + 1] != ' ') {
    piece.isNegated = true;
    ++at;
  }
  while (at < text.size() && text[at] != ' ') {
    if (text[at] == '"') {
      piece.isQuoted = true;
      if (!readQuoted(text, at, piece.value)) {
        return Failure{fmt::format("{}: the quotes do not end", text.substr(begin))};
      }
    } else if (text[at] == ':' && !piece.hasKey && !piece.isQuoted) {
      piece.hasKey = true;
      piece.key = std::exchange(piece.value, "");
      ++at;
    } else {
      piece.value += text[at++];
    }
  }
  piece.source = text.substr(begin, at - begin);
  return piece;
}

std::optional<double> numberOf(std::string_view text) {
  double number = 0;
  const auto end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc() || rest != end) return std::nullopt;
  return number;
}

void takeRelation(Term& term) {
  constexpr std::array<std::pair<std::string_view, Relation>, 4> signs{{{">=", Relation::atLeast},
                                                                        {"<=", Relation::atMost},
                                                                        {">", Relation::greater},
                                                                        {"<", Relation::less}}};
  for (const auto& [sign, relation] : signs) {
    if (!std::string_view(term.value).starts_with(sign)) continue;
    term.relation = relation;
    term.value.erase(0, sign.size());
    return;
  }
}

std::vector<std::string> pathOf(std::string_view text) {
  std::vector<std::string> path;
  for (std::size_t at = 0; at <= text.size();) {
    const auto dot = std::min(text.find('.', at), text.size());
    path.emplace_back(text.substr(at, dot - at));
    at = dot + 1;
  }
  return path;
}

ParsedTerm wrong(const Term& term, std::string_view reason) {
  return Failure{fmt::format("{}: {}", term.source, reason)};
}

/// "data.PATH" or "info.PATH", whose path has no empty part.
bool setPath(Term& term, std::string_view text, TermField data, TermField info) {
  if (text.starts_with("data.")) {
    term.field = data;
  } else if (text.starts_with("info.")) {
    term.field = info;
  } else {
    return false;
  }
  term.path = pathOf(text.substr(5));
  return std::ranges::none_of(term.path, &std::string::empty);
}

ParsedTerm withNumber(Term term) {
  takeRelation(term);
  term.number = numberOf(term.value);
  if (!term.number) return wrong(term, "needs a number");
  return term;
}

ParsedTerm withTime(Term term, double now) {
  term.number = parseTime(term.value, now);
  term.relation = term.field == TermField::after ? Relation::atLeast : Relation::less;
  if (!term.number) {
    return wrong(term, "is no time; give -5m, -2h, -1d, 14:30, 2026-01-31 or an ISO time");
  }
  return term;
}

ParsedTerm withText(Term term, bool isQuoted) {
  if (term.value.empty() && !isQuoted) return wrong(term, "needs a value");
  term.isPrefix = !isQuoted && term.value.back() == '*';
  if (term.isPrefix) term.value.pop_back();
  return term;
}

ParsedTerm withValue(Term term, bool isQuoted) {
  if (!isQuoted) takeRelation(term);
  if (!isQuoted) term.number = numberOf(term.value);
  if (term.relation != Relation::equal && !term.number) return wrong(term, "needs a number");
  return withText(std::move(term), isQuoted);
}

ParsedTerm termOf(const Piece& piece, double now) {
  Term term{.isNegated = piece.isNegated, .source = piece.source, .value = piece.value};
  if (!piece.hasKey) return withText(std::move(term), /*isQuoted=*/true);
  if (piece.key == "has") {
    if (setPath(term, piece.value, TermField::hasData, TermField::hasInfo)) return term;
    return wrong(term, "needs data.PATH or info.PATH");
  }
  if (setPath(term, piece.key, TermField::data, TermField::info)) {
    return withValue(std::move(term), piece.isQuoted);
  }
  const auto found = std::ranges::find(fields, piece.key, &NamedTermField::key);
  if (found == fields.end()) return wrong(term, "there is no such key; quote a text with a colon");
  term.field = found->field;
  switch (term.field) {
    case TermField::bad:
      return term.value.empty() ? ParsedTerm(term) : wrong(term, "takes no value");
    case TermField::after:
    case TermField::before:
      return withTime(std::move(term), now);
    case TermField::duplicates:
    case TermField::status:
    case TermField::code:
      return withNumber(std::move(term));
    case TermField::tester:
      if (term.value != "true" && term.value != "false") return wrong(term, "is true or false");
      return term;
    default:
      return withText(std::move(term), piece.isQuoted);
  }
}

}  // namespace

Result<Query, std::string> Query::parse(std::string_view text, double now) {
  if (text.size() > longest) return Failure{std::string("the query is too long")};
  Query query;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == ' ') {
      ++at;
      continue;
    }
    const auto piece = readPiece(text, at);
    if (!piece) return Failure{piece.error()};
    auto term = termOf(*piece, now);
    if (!term) return Failure{term.error()};
    query._terms.push_back(*std::move(term));
    if (query._terms.size() > mostTerms)
      return Failure{std::string("the query has too many terms")};
  }
  return query;
}

}  // namespace kite::tool
