#include "Demo/Stage.h"

#include "Common/CommandFailure.h"
#include "Demo/Comparison.h"

#include <fmt/format.h>

#include <chrono>
#include <fstream>
#include <set>
#include <thread>

namespace kite::tool {
namespace {

using Clock = std::chrono::steady_clock;
constexpr const char* signingKey = "demo-key";
constexpr auto pollInterval = std::chrono::milliseconds(150);

/// Long enough for a flush and for `events` to leave in batches.
std::chrono::seconds patience(std::size_t events) {
  return std::chrono::seconds(20 + 3 * (events / 500));
}

}  // namespace

Stage::Stage(std::filesystem::path folder, Audience audience, std::size_t events, bool isInspected)
    : _folder(std::move(folder)),
      _collector(_folder / "collector", signingKey, {"status:503"}, isInspected),
      _progress(audience, events) {
  std::ofstream(attribution()) << R"({"campaign":"spring hikes","keyword_id":87,"clicked":true})";
}

void Stage::announce(const std::string& scene) { _progress.beginScene(scene, counts()); }

Progress::Counts Stage::counts() const {
  return {.tracked = _ledger.size(), .delivered = deliveredCount(_collector.database())};
}

void Stage::showProgress() {
  if (_progress.isDue(Clock::now())) _progress.update(counts());
}

bool Stage::waitUntil(const std::function<bool()>& isDone) {
  const auto deadline = Clock::now() + patience(_ledger.size());
  while (!isDone()) {
    if (Clock::now() > deadline) return false;
    showProgress();
    std::this_thread::sleep_for(pollInterval);
  }
  showProgress();
  return true;
}

void Stage::launch(std::vector<std::string> options) {
  options.insert(options.end(),
                 {"--state", _folder, "--ca-file", _collector.ca(), "--key", signingKey,
                  "--lumo-id", "kite-demo", "--attribution", attribution(), "--storefront",
                  "143461:NZ", "--custom-id", "crew=demo"});
  _host.emplace(options, _folder / "host.log");
  call("start");
}

void Stage::call(const std::string& op, JSONValue::Object members) {
  _host->call(op, std::move(members));
  showProgress();
}

void Stage::quit() { _host->quit(); }

void Stage::crash() { _host->crash(); }

void Stage::uninstall() { std::filesystem::remove_all(_folder / "app"); }

std::vector<Event> Stage::keptEvents() const {
  // The queue first: what leaves it meanwhile is at the collector already.
  auto pending = pendingEvents(_folder);
  auto events = deliveredEvents(_collector.database());
  std::set<std::string> ids;
  for (const auto& event : events) ids.insert(event.id);
  for (auto& event : pending) {
    if (ids.insert(event.id).second) events.push_back(std::move(event));
  }
  return events;
}

void Stage::settle() {
  std::vector<std::string> problems;
  const auto isKept = [&] {
    problems = compare(_ledger, keptEvents()).problems;
    return problems.empty();
  };
  if (!waitUntil(isKept))
    throw CommandFailure(
        fmt::format("{} events went astray, such as: {}", problems.size(), problems.front()));
}

bool Stage::drain() {
  return waitUntil([&] { return pendingEvents(_folder).empty(); });
}

}  // namespace kite::tool
