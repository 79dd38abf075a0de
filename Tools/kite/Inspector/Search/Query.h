#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Store/EventStore.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

class Subject;

/// What a term looks at.
enum class TermField {
  type,
  name,
  session,
  client,
  id,
  app,
  tester,
  after,
  before,
  duplicates,
  status,
  code,
  data,
  info,
  hasData,
  hasInfo,
  bad,
  word
};

enum class Relation { equal, greater, atLeast, less, atMost };

/// One condition of a query.
struct Term {
  TermField field = TermField::word;
  bool isNegated = false;
  std::string source = {};  ///< as it was written
  std::string value = {};
  bool isPrefix = false;
  Relation relation = Relation::equal;
  std::optional<double> number = {};  ///< the value, if it is one; a time in seconds since 1970
  std::vector<std::string> path = {};
};

/// What is looked for. All terms must hold; a term about what a row does not have does not hold.
class Query {
 public:
  static constexpr std::size_t longest = 4096;  ///< bytes of its text
  static constexpr std::size_t mostTerms = 64;

  /// `now`, in seconds since 1970, is what relative times are counted from. The error names the
  /// term.
  static Result<Query, std::string> parse(std::string_view text, double now);

  bool matches(const EventRecord& event) const;
  bool matches(const RequestRecord& request) const;
  bool matches(const SessionRecord& session) const;

  /// One text for each term that does not hold.
  std::vector<std::string> differences(const EventRecord& event) const;
  /// What can be left out while events are looked for.
  EventFilter filter() const;
  std::size_t size() const { return _terms.size(); }

 private:
  std::vector<Term> _terms;
};

}  // namespace kite::tool
