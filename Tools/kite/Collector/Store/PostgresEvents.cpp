#include "Collector/Store/PostgresEvents.h"

#include "Collector/JSONText.h"
#include "Collector/Store/PostgresRecords.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <unordered_map>

namespace kite::tool {
namespace {

using Of = PostgresArray::Of;
namespace dom = simdjson::dom;

const PostgresQuery takeNumbers{
    "take_numbers", "SELECT nextval('event_numbers') FROM generate_series(1, $1::bigint)"};

/// Sorted, so that two that add the same events wait for each other, and not in a circle.
const PostgresQuery addIdentifiers{
    "add_identifiers",
    "INSERT INTO identifiers(id, seq, received_at) SELECT id::uuid, seq, $1 "
    "FROM unnest($2::text[], $3::bigint[]) AS given(id, seq) ORDER BY 1, 2 "
    "ON CONFLICT DO NOTHING RETURNING seq"};

/// The user's information, which is large and mostly the same, is sent once.
const PostgresQuery addNew{
    "add_events",
    "INSERT INTO events(seq, id, type, timestamp, request_timestamp, received_at, app, client_id, "
    "tester, user_info, user_ids, data) "
    "SELECT seq, id, type, timestamp, $1, $2, $3, $4, $5, ($6::jsonb[])[info], ($7::jsonb[])[ids], "
    "data FROM unnest($8::bigint[], $9::text[], $10::text[], $11::float8[], $12::bigint[], "
    "$13::bigint[], $14::jsonb[]) AS new(seq, id, type, timestamp, info, ids, data)"};

const PostgresQuery countRepeated{
    "count_repeated",
    "WITH again AS MATERIALIZED (SELECT seq, received_at, times FROM "
    "(SELECT id::uuid AS id, count(*) AS times FROM unnest($1::text[]) AS given(id) GROUP BY 1) "
    "AS given JOIN identifiers USING (id) ORDER BY seq) "
    "UPDATE events SET duplicates = duplicates + times FROM again "
    "WHERE events.seq = again.seq AND events.received_at = again.received_at "
    "RETURNING events.seq, events.id, duplicates, type, times"};

/// Texts of which each is kept once; their places count from 1.
class Distinct {
 public:
  std::int64_t place(const std::string& text) {
    const auto [found, isNew] =
        _places.try_emplace(text, static_cast<std::int64_t>(_places.size()) + 1);
    if (isNew) _texts.add(text);
    return found->second;
  }
  const PostgresArray& texts() const { return _texts; }

 private:
  std::unordered_map<std::string_view, std::int64_t> _places;
  PostgresArray _texts{Of::json};
};

std::vector<Seq> numbersFor(PostgresConnection& connection, std::size_t count) {
  const auto rows =
      connection.run(takeNumbers, PostgresParameters(static_cast<std::int64_t>(count)));
  std::vector<Seq> numbers;
  for (int row = 0; row < rows.count(); ++row) numbers.push_back(rows.integer(row, 0));
  return numbers;
}

/// The numbers, in order, of the events that nobody added before.
std::vector<Seq> addIDs(PostgresConnection& connection, const std::vector<ReceivedEvent>& events,
                        const std::vector<Seq>& numbers, double receivedAt) {
  PostgresArray ids(Of::texts);
  PostgresArray seqs(Of::integers);
  for (const ReceivedEvent& event : events) ids.add(identifierOf(event.id));
  for (const Seq number : numbers) seqs.add(number);
  const auto rows = connection.run(addIdentifiers, PostgresParameters(receivedAt, ids, seqs));
  std::vector<Seq> added;
  for (int row = 0; row < rows.count(); ++row) added.push_back(rows.integer(row, 0));
  std::ranges::sort(added);
  return added;
}

/// The columns of the new events.
struct Columns {
  void add(Seq seq, const ReceivedEvent& event) {
    seqs.add(seq);
    ids.add(event.id);
    types.add(event.type);
    timestamps.add(event.timestamp);
    infoPlaces.add(infos.place(event.userInfo));
    userIDsPlaces.add(userIDs.place(event.userIDs));
    data.add(event.data);
  }
  Distinct infos;
  Distinct userIDs;
  PostgresArray seqs{Of::integers};
  PostgresArray ids{Of::texts};
  PostgresArray types{Of::texts};
  PostgresArray timestamps{Of::reals};
  PostgresArray infoPlaces{Of::integers};
  PostgresArray userIDsPlaces{Of::integers};
  PostgresArray data{Of::json};
};

void addRows(PostgresConnection& connection, const Accepted& accepted, double receivedAt,
             const Columns& columns) {
  const auto& [sender, batch] = accepted;
  connection.run(addNew,
                 PostgresParameters(batch.requestTimestamp, receivedAt, sender.app, sender.clientID,
                                    sender.isTester, columns.infos.texts(), columns.userIDs.texts(),
                                    columns.seqs, columns.ids, columns.types, columns.timestamps,
                                    columns.infoPlaces, columns.userIDsPlaces, columns.data));
}

void countAgain(PostgresConnection& connection, const PostgresArray& ids, Stored& stored,
                Tallies& tallies) {
  const auto rows = connection.run(countRepeated, PostgresParameters(ids));
  for (int row = 0; row < rows.count(); ++row) {
    const std::int64_t times = rows.integer(row, 4);
    const std::int64_t before = rows.integer(row, 2) - times;
    for (std::int64_t time = 1; time <= times; ++time) {
      stored.repeated.push_back({rows.integer(row, 0), rows.text(row, 1), before + time});
    }
    tallies.byType[rows.text(row, 3)].duplicates += times;
  }
}

void put(std::string& out, const dom::element& value);

void putText(std::string& out, std::string_view text) {
  std::string storable;
  for (const char letter : text)
    storable += letter == '\0' ? "\xEF\xBF\xBD" : std::string(1, letter);
  out += quotedJSON(storable);
}

void putObject(std::string& out, const dom::object& object) {
  char before = '{';
  for (const auto& [key, value] : object) {
    out += before;
    putText(out, key);
    out += ':';
    put(out, value);
    before = ',';
  }
  out += before == '{' ? "{}" : "}";
}

void putArray(std::string& out, const dom::array& array) {
  char before = '[';
  for (const dom::element value : array) {
    out += before;
    put(out, value);
    before = ',';
  }
  out += before == '[' ? "[]" : "]";
}

void put(std::string& out, const dom::element& value) {
  if (value.is_object()) return putObject(out, value.get_object().value_unsafe());
  if (value.is_array()) return putArray(out, value.get_array().value_unsafe());
  if (value.is_string()) return putText(out, value.get_string().value_unsafe());
  out += value.type() == dom::element_type::DOUBLE ? realJSON(value.get_double().value_unsafe())
                                                   : simdjson::minify(value);
}

}  // namespace

std::string storableJSON(const std::string& json) {
  dom::parser parser;
  dom::element value;
  if (parser.parse(json).get(value) != simdjson::SUCCESS) return json;
  std::string storable;
  put(storable, value);
  return storable;
}

void addEvents(PostgresConnection& connection, const Accepted& accepted, double receivedAt,
               Stored& stored, Tallies& tallies) {
  const auto& events = accepted.batch.events;
  const auto numbers = numbersFor(connection, events.size());
  const auto added = addIDs(connection, events, numbers, receivedAt);
  Columns columns;
  PostgresArray repeated(Of::texts);
  for (std::size_t i = 0; i < events.size(); ++i) {
    if (std::ranges::binary_search(added, numbers[i])) {
      columns.add(numbers[i], events[i]);
      tallies.add(accepted.sender, events[i]);
    } else {
      repeated.add(identifierOf(events[i].id));
    }
  }
  stored.newEvents = added.size();
  stored.duplicates = events.size() - added.size();
  if (stored.newEvents > 0) addRows(connection, accepted, receivedAt, columns);
  if (stored.duplicates > 0) countAgain(connection, repeated, stored, tallies);
}

}  // namespace kite::tool
