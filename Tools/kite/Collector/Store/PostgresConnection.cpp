#include "Collector/Store/PostgresConnection.h"

#include <fmt/format.h>
#include <poll.h>

#include <cstdlib>

namespace kite::tool {
namespace {

/// Between two tries to connect everything fails at once, so that nobody waits behind the tries.
constexpr std::chrono::milliseconds betweenTries{500};

}  // namespace

std::int64_t PostgresRows::changed() const {
  return std::strtoll(PQcmdTuples(_result.get()), nullptr, 10);
}

std::string PostgresRows::text(int row, int column) const {
  return {PQgetvalue(_result.get(), row, column),
          static_cast<std::size_t>(PQgetlength(_result.get(), row, column))};
}

std::int64_t PostgresRows::integer(int row, int column) const {
  return std::strtoll(PQgetvalue(_result.get(), row, column), nullptr, 10);
}

double PostgresRows::real(int row, int column) const {
  return std::strtod(PQgetvalue(_result.get(), row, column), nullptr);
}

PostgresConnection::PostgresConnection(const std::string& url, std::chrono::milliseconds patience,
                                       std::string setUp)
    : _address(url), _patience(patience), _setUp(std::move(setUp)) {
  startClock();
}

void PostgresConnection::startClock(Clock::time_point deadline) {
  if (deadline <= Clock::now()) throw StoreAway("the database did not answer in time");
  _deadline = deadline;
  if (!_session) return;
  // A server that went away has said so, with a last message before the connection's end.
  const bool isThere = PQconsumeInput(_session.get()) == 1 && PQconsumeInput(_session.get()) == 1;
  if (!isThere) drop();
}

void PostgresConnection::connect() {
  if (_session) return;
  if (Clock::now() < _connectAgainAt) throw StoreAway(_whyAway);
  try {
    _session = _address.connect(_deadline);
  } catch (const StoreAway& away) {
    giveUp(away.what());
  }
  PQsetnonblocking(_session.get(), 1);
  PQsetNoticeReceiver(_session.get(), noteWarning, this);
  try {
    if (!_setUp.empty()) finish(PQsendQuery(_session.get(), _setUp.c_str()) == 1);
  } catch (const PostgresRefusal& refusal) {
    giveUp(refusal.what());
  }
}

void PostgresConnection::drop() {
  _session.reset();
  _prepared.clear();
}

void PostgresConnection::noteWarning(void* self, const PGresult* warning) {
  const char* code = PQresultErrorField(warning, PG_DIAG_SQLSTATE);
  if (code && std::string_view(code).starts_with("57")) {
    static_cast<PostgresConnection*>(self)->_warning = oneLine(PQresultErrorMessage(warning));
  }
}

PostgresRows PostgresConnection::run(const PostgresQuery& query,
                                     const PostgresParameters& parameters) {
  connect();
  if (!_prepared.contains(query.name)) prepare(query);
  const auto values = parameters.values();
  const auto lengths = parameters.lengths();
  const auto formats = parameters.formats();
  return finish(PQsendQueryPrepared(_session.get(), query.name, static_cast<int>(values.size()),
                                    values.data(), lengths.data(), formats.data(), 0) == 1);
}

PostgresRows PostgresConnection::run(const std::string& sql) {
  connect();
  return finish(PQsendQuery(_session.get(), sql.c_str()) == 1);
}

void PostgresConnection::prepare(const PostgresQuery& query) {
  finish(PQsendPrepare(_session.get(), query.name, query.sql.c_str(), 0, nullptr) == 1);
  _prepared.insert(query.name);
}

/// Takes the results until there are no more; the first error counts.
PostgresRows PostgresConnection::finish(bool isSent) {
  if (!isSent) giveUp(oneLine(PQerrorMessage(_session.get())));
  while (const int rest = PQflush(_session.get())) {
    if (rest < 0 || !wait(true)) giveUp(oneLine(PQerrorMessage(_session.get())));
  }
  std::optional<PostgresRows> rows;
  std::optional<PostgresRefusal> refusal;
  for (;;) {
    while (PQisBusy(_session.get())) {
      if (!wait(false)) giveUp(oneLine(PQerrorMessage(_session.get())));
    }
    PGresult* result = PQgetResult(_session.get());
    if (!result) break;
    rows.emplace(result);
    const char* code = PQresultErrorField(result, PG_DIAG_SQLSTATE);
    const bool isError = PQresultStatus(result) == PGRES_FATAL_ERROR;
    if (!isError || refusal) continue;
    const char* message = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
    refusal.emplace(oneLine(message ? message : PQresultErrorMessage(result)), code ? code : "");
  }
  if (PQstatus(_session.get()) == CONNECTION_BAD) giveUp(oneLine(PQerrorMessage(_session.get())));
  if (refusal && refusal->isReadOnly()) giveUp(refusal->what());
  if (refusal) throw PostgresRefusal(*refusal);
  return *std::move(rows);
}

bool PostgresConnection::wait(bool isToWrite) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(_deadline - Clock::now());
  pollfd socket{.fd = PQsocket(_session.get()),
                .events = static_cast<short>(isToWrite ? POLLIN | POLLOUT : POLLIN),
                .revents = 0};
  if (left.count() <= 0 || ::poll(&socket, 1, static_cast<int>(left.count())) == 0) {
    giveUp("the database did not answer in time");
  }
  return PQconsumeInput(_session.get()) == 1;
}

void PostgresConnection::giveUp(const std::string& reason) {
  _whyAway = reason;
  _connectAgainAt = Clock::now() + betweenTries;
  drop();
  throw StoreAway(reason);
}

void PostgresConnection::commit() {
  _warning.clear();
  const auto tag = std::string(run("COMMIT").tag());
  if (!_warning.empty()) throw StoreAway(_warning);
  if (tag != "COMMIT") throw StoreAway("the database took the changes back");
}

PostgresTransaction::PostgresTransaction(PostgresConnection& connection, const std::string& first)
    : _connection(connection) {
  connection.run("BEGIN;" + first);
}

PostgresTransaction::~PostgresTransaction() {
  if (!_isOpen || !_connection.isConnected()) return;
  try {
    _connection.run("ROLLBACK");
  } catch (const StoreError&) {  // then it ends with the connection
  }
}

}  // namespace kite::tool
