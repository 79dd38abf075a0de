// A host whose timers run faster, or by hand, and which can wait until all that was tracked has
// reached the queue. It understands some of the lines of `kite host`, and:
//
//   {"op":"settle"}              answers once every insertion and removal until now has run
//   {"op":"fire","period":10}    runs the timers of this period once, and settles
//   {"op":"fill","from":0,"count":9,"padding":"…"}   tracks many events
//
// The answer to an event tells the fast time at which it had been tracked. `--clock FILE` holds the
// fast time up to which all that was due is done.

#include <Kite/Kite.h>
#include <Kite/Linux/LinuxPlatform.h>

#include "DividedScheduler.h"
#include "Lines.h"

#include <future>

namespace kite::faults {
namespace {

class TimedHost {
 public:
  explicit TimedHost(Options options) : _options(std::move(options)) {
    auto* published = _options.has("clock") ? sharedNumber(_options.text("clock")) : nullptr;
    _scheduler = std::make_shared<DividedScheduler>(
        _options.number("divide", 0), [this] { settle(); }, published);
  }

  /// False at the end.
  bool answer(const std::string& text) {
    const Line line(text);
    const auto op = line.text("op");
    if (op == "quit") return reply(""), false;
    if (op == "trackUserAction") {
      _kite.trackUserAction(line.text("name"), line.data("data"));
      return reply(",\"at\":" + std::to_string(_scheduler->now())), true;
    }
    run(op, line);
    return reply(""), true;
  }

 private:
  void run(const std::string& op, const Line& line) {
    if (op == "start") return _kite.start(dependencies());
    if (op == "settle") return settle();
    if (op == "didEnterBackground") return _application->didEnterBackground();
    if (op == "willEnterForeground") return _application->willEnterForeground();
    if (op == "addSessionData")
      return _kite.addSessionData(line.text("key"), line.integer("value"));
    if (op == "updateUserInfo") return _kite.updateUserInfo(line.data("with"));
    if (op == "fill")
      return fill(line.integer("from"), line.integer("count"), line.text("padding"));
    if (op == "fire") {
      settle();
      _scheduler->fire(line.number("period"));
      return settle();
    }
    throw std::runtime_error("unknown op " + op);
  }

  void fill(std::int64_t from, std::int64_t count, const std::string& padding) {
    for (auto serial = from; serial < from + count; ++serial)
      _kite.trackUserAction("proof", {{"serial", serial}, {"padding", padding}});
  }

  // A block that is put at the queue's end runs after all before it.
  void settle() {
    if (!_storageQueue) return;
    const auto reached = std::make_shared<std::promise<void>>();
    _storageQueue->run([reached] { reached->set_value(); });
    reached->get_future().wait();
  }

  Platform platform() {
    Linux::PlatformOptions options{.applicationName = "kite-host"};
    options.kitbag = {.appVersion = "1.0", .bundleVersion = "1"};
    options.dataFolder = _options.text("state") + "/app";
    options.secretsFolder = _options.text("state") + "/secrets";
    if (_options.has("ca-file")) options.caFile = _options.text("ca-file");
    options.notificationCenter = _center;
    auto platform = Linux::platform(std::move(options));
    platform.scheduler = [this] { return _scheduler; };
    platform.queue = [this](const std::string& name) {
      auto queue = Linux::workerQueue(name);
      if (name != "kite.sync") _storageQueue = queue;
      return queue;
    };
    return platform;
  }

  KiteDependencies dependencies() {
    const auto endpoint = URL::parse(_options.text("endpoint"));
    if (!endpoint) throw std::runtime_error("--endpoint is no URL");
    return {platform(),
            FromCustomIDs{
                .installedBeforeKite = false,
                .customIDs = {},
                .endpoints = {.production = *endpoint, .staging = *endpoint},
                .sessionListener = SessionListener::notificationCenter(_center),
                .backgroundChecker =
                    BackgroundChecker::uiApplication(_application, Linux::inlineMainThread()),
                .backgroundTaskScheduler = BackgroundTaskScheduler::uiApplication(_application),
                .lumoID = "kite-host",
                .wicketKey = _options.text("key"),
                .whisker = Linux::jsonLinesWhisker(),
                .storefrontProvider = [] { return std::nullopt; },
                .syncOnSessionEnd = _options.has("sync-on-session-end")}};
  }

  const Options _options;
  const std::shared_ptr<NotificationCenter> _center = Linux::notificationCenter();
  const std::shared_ptr<Linux::HostApplication> _application = Linux::hostApplication(
      _center, _options.has("start-in-background") ? ApplicationState::background
                                                   : ApplicationState::active);
  std::shared_ptr<DividedScheduler> _scheduler;
  std::shared_ptr<Tempra::Queue> _storageQueue;
  KiteManagerImpl _kite;
};

}  // namespace
}  // namespace kite::faults

int main(int count, char** arguments) {
  // Not destroyed: the process ends as it is, with timers under way.
  auto* host = new kite::faults::TimedHost(kite::faults::Options(count, arguments));
  std::string line;
  while (std::getline(std::cin, line) && host->answer(line)) {
  }
  std::_Exit(0);
}
