// A host whose timers run faster, or by hand, and which can wait until all that was tracked has
// reached the queue. It understands some of the lines of `kite host`, and:
//
//   {"op":"settle"}              answers once every insertion and removal until now has run
//   {"op":"fire","period":10}    runs the timers of this period once, and settles
//   {"op":"fill","from":0,"count":9,"padding":"…"}   tracks many events
//
// The answer to an event tells the fast time at which it had been tracked. `--clock FILE` holds the
// fast time up to which all that was due is done.

#include "DividedScheduler.h"
#include "HostParts.h"

namespace kite::faults {
namespace {

class TimedHost {
 public:
  explicit TimedHost(Options options) : _options(std::move(options)) {
    auto* published = _options.has("clock") ? sharedNumber(_options.text("clock")) : nullptr;
    _scheduler = std::make_shared<DividedScheduler>(
        _options.number("divide", 0), [this] { _parts.settle(); }, published);
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
    if (op == "start") return start();
    if (op == "settle") return _parts.settle();
    if (op == "didEnterBackground") return _parts.application().didEnterBackground();
    if (op == "willEnterForeground") return _parts.application().willEnterForeground();
    if (op == "addSessionData")
      return _kite.addSessionData(line.text("key"), line.integer("value"));
    if (op == "updateUserInfo") return _kite.updateUserInfo(line.data("with"));
    if (op == "fill")
      return fill(line.integer("from"), line.integer("count"), line.text("padding"));
    if (op == "fire") {
      _parts.settle();
      _scheduler->fire(line.number("period"));
      return _parts.settle();
    }
    throw std::runtime_error("unknown op " + op);
  }

  void start() {
    auto platform = _parts.platform();
    platform.scheduler = [this] { return _scheduler; };
    _kite.start(_parts.dependencies(platform, _options.has("sync-on-session-end")));
  }

  void fill(std::int64_t from, std::int64_t count, const std::string& padding) {
    for (auto serial = from; serial < from + count; ++serial)
      _kite.trackUserAction("proof", {{"serial", serial}, {"padding", padding}});
  }

  const Options _options;
  HostParts _parts{_options, _options.has("start-in-background") ? ApplicationState::background
                                                                 : ApplicationState::active};
  std::shared_ptr<DividedScheduler> _scheduler;
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
