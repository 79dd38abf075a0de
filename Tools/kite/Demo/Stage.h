#pragma once

#include "Demo/ClosedPort.h"
#include "Demo/CollectorProcess.h"
#include "Demo/Event.h"
#include "Demo/HostProcess.h"
#include "Demo/Ledger.h"
#include "Demo/Progress.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kite::tool {

/// Everything around the day: the collector, the host of the moment, the ledger and the audience.
class Stage {
 public:
  /// `folder` is new; the host's stores, the collector's files and the logs all go into it. Tells
  /// the audience how far a day of `events` is.
  Stage(std::filesystem::path folder, Audience audience, std::size_t events, bool isInspected);

  void announce(const std::string& scene);

  /// Launches the application against these endpoints, which are `upload` or `closedPort`.
  void launch(std::vector<std::string> options);
  void call(const std::string& op, JSONValue::Object members = {});
  void quit();
  void crash();
  /// Takes the application off the machine; its secrets survive, as on a phone.
  void uninstall();

  /// Waits until every tracked event is on disk or at the collector, so that even a crash loses
  /// none.
  void settle();
  /// Waits until the queue is empty; false when it does not get so in time.
  bool drain();

  Ledger& ledger() { return _ledger; }
  const CollectorProcess& collector() const { return _collector; }
  const std::filesystem::path& folder() const { return _folder; }
  std::string closedURL() const { return _closedPort.url(); }
  std::filesystem::path attribution() const { return _folder / "attribution.json"; }

 private:
  std::vector<Event> keptEvents() const;
  Progress::Counts counts() const;
  void showProgress();
  bool waitUntil(const std::function<bool()>& isDone);

  std::filesystem::path _folder;
  ClosedPort _closedPort;
  CollectorProcess _collector;
  Ledger _ledger;
  Progress _progress;
  std::optional<HostProcess> _host;
};

}  // namespace kite::tool
