#include "Facade/ModelledHost.h"

#include "Support/Gunzip.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <set>

namespace kite::fuzz {
namespace {

constexpr std::size_t flushSeconds = 10;
constexpr const char* endpoint = "https://staging.test/v4/events";
constexpr const char* serialKey = "longer than any name of RandomBytes";

void require(bool condition, const char* rule) {
  if (condition) return;
  std::fprintf(stderr, "broken: %s\n", rule);
  std::abort();
}

/// The serial number in an event's data, which stands at different places in different kinds.
std::optional<std::int64_t> serialIn(const JSONValue& value) {
  const auto* object = value.object();
  if (object == nullptr) return std::nullopt;
  if (const auto* serial = object->at(serialKey)) return *serial->integer();
  for (const auto& [key, member] : *object)
    if (const auto found = serialIn(member)) return found;
  return std::nullopt;
}

/// A session's start has its session's identifier, which other events of it may name, too.
bool isSession(const JSONValue& event) {
  return *event.object()->at("type")->string() == "Session";
}

std::deque<std::int64_t> serialsIn(const JSONValue::Array& events) {
  std::deque<std::int64_t> serials;
  std::set<std::string> identifiers;
  for (const auto& event : events) {
    const auto& identifier = *event.object()->at("id")->string();
    require(isSession(event) || identifiers.insert(identifier).second, "identifiers differ");
    if (const auto serial = serialIn(*event.object()->at("data"))) serials.push_back(*serial);
  }
  return serials;
}

bool isBeginning(const std::deque<std::int64_t>& part, const std::deque<std::int64_t>& whole) {
  return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

JSONValue::Array eventsOf(const URLRequest& request) {
  require(request.body != nullptr, "a request has a body");
  const auto text = test::gunzip(request.body->bytes);
  const auto body = text ? decodeJSON(*text) : std::nullopt;
  require(body && body->object() != nullptr, "a body is a packed object");
  return *body->object()->at("events")->array();
}

}  // namespace

ModelledHost::ModelledHost() {
  _world.network.respond([this](const URLRequest& request) { return answer(request); });
  start();
}

void ModelledHost::start() {
  _seconds = 0;
  _kite = std::make_unique<KiteManagerImpl>(_world.system.system());
  _kite->start(_world.dependencies());
}

KiteData ModelledHost::tracked(KiteData data, bool isRecorded) {
  data.set(serialKey, _nextSerial);
  if (isRecorded) _queue.push_back(_nextSerial);
  if (isRecorded && _isInBackground) save();
  ++_nextSerial;
  return data;
}

void ModelledHost::enterBackground() {
  _isInBackground = true;
  _world.enterBackground();
  save();
}

void ModelledHost::enterForeground() {
  _isInBackground = false;
  _world.enterForeground();
}

void ModelledHost::passSeconds(std::size_t count) {
  for (; count > 0; --count) passSecond();
}

// Of timers that are due together, that of the flush is the first.
void ModelledHost::passSecond() {
  if (++_seconds % flushSeconds == 0) save();
  _world.time->advance(Tempra::Duration(1));
}

void ModelledHost::restart() {
  _kite = nullptr;
  _world.keyValues->restart();
  _world.secrets->restart();
  _queue = _saved;
  start();
}

test::Answer ModelledHost::answer(const URLRequest& request) {
  const auto sent = serialsIn(eventsOf(request));
  require(isBeginning(sent, _queue), "what is sent is the beginning of the queue");
  auto given = _script(request);
  if (!isTaken(given, request.url)) return given;
  _queue.erase(_queue.begin(), _queue.begin() + static_cast<std::ptrdiff_t>(sent.size()));
  if (_isInBackground) save();
  return given;
}

/// An answer without a status is taken for a success, but only of the last endpoint to be tried:
/// that is the bundle's own, whatever a redirection led to before.
bool ModelledHost::isTaken(const test::Answer& answer, const URL& url) const {
  if (answer.error) return false;
  const auto status = answer.response ? answer.response->statusCode : std::nullopt;
  if (status) return *status >= 200 && *status <= 299;
  return url == *URL::parse(endpoint);
}

void ModelledHost::check() const {
  require(serialsIn(_world.persistedEvents()) == _saved, "the store holds what was saved");
}

void ModelledHost::checkThatAllArrives() {
  answerFromNowOn(test::answers(200));
  enterForeground();
  for (int round = 0; round < 100 && !_queue.empty(); ++round) passSecond();
  require(_queue.empty(), "all arrives");
  passSeconds(flushSeconds);
  check();
}

}  // namespace kite::fuzz
