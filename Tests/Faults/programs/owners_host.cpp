// A host with several facades over one state folder, which forks. Its lines:
//
//   {"op":"start","facade":0}
//   {"op":"track","facade":0,"stream":"a","from":0,"count":9}   user actions with serial numbers
//   {"op":"userInfo","facade":0}                                whether the profile is there
//   {"op":"settle"}                                             once all insertions have run
//   {"op":"fork","facade":0,"does":"track","ends":"_exit","busy":8}
//
// `fork` makes a child that tracks events of the stream "child" and reads ("track"), destroys the
// facade ("destroy") or does nothing ("nothing"), and leaves by "_exit" or "exit". Meanwhile so
// many threads of the parent track and read. The answer tells the child's status, or that it hung.

#include "HostParts.h"

#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

namespace kite::faults {
namespace {

constexpr auto patience = std::chrono::seconds(5);

class OwnersHost {
 public:
  explicit OwnersHost(Options options) : _options(std::move(options)) {}

  bool answer(const std::string& text) {
    const Line line(text);
    const auto op = line.text("op");
    if (op == "quit") return reply(""), false;
    if (op == "start") {
      facade(line).start(_parts.dependencies(_parts.platform()));
    } else if (op == "track") {
      track(facade(line), line.text("stream"), line.integer("from"), line.integer("count"));
    } else if (op == "userInfo") {
      return reply(",\"value\":" +
                   std::to_string(facade(line).userInfoKiteValue().values().size())),
             true;
    } else if (op == "settle") {
      _parts.settle();
    } else if (op == "fork") {
      return reply(",\"value\":\"" + forked(line) + "\""), true;
    } else {
      throw std::runtime_error("unknown op " + op);
    }
    return reply(""), true;
  }

 private:
  KiteManagerImpl& facade(const Line& line) {
    const auto index = static_cast<std::size_t>(line.integer("facade"));
    while (_facades.size() <= index) _facades.push_back(std::make_unique<KiteManagerImpl>());
    return *_facades[index];
  }

  static void track(KiteManagerImpl& kite, const std::string& stream, std::int64_t from,
                    std::int64_t count) {
    for (auto serial = from; serial < from + count; ++serial)
      kite.trackUserAction("proof", {{"serial", serial}, {"stream", stream}});
  }

  std::string forked(const Line& line) {
    auto& kite = facade(line);
    std::atomic<bool> isOver = false;
    std::vector<std::thread> busy;
    for (std::int64_t i = 0; i < line.integer("busy"); ++i)
      busy.emplace_back([&, i] {
        const auto stream = "busy " + std::to_string(_round) + " " + std::to_string(i);
        for (std::int64_t serial = 0; serial < 40 || !isOver; ++serial) {
          if (serial < 40) track(kite, stream, serial, 1);
          static_cast<void>(kite.userInfoKiteValue());
          kite.addSessionData("busy", serial);
        }
      });
    if (!busy.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    const auto does = line.text("does");
    const auto ends = line.text("ends");
    const auto child = ::fork();
    if (child == 0) live(kite, does, ends);
    const auto fate = awaited(child);
    isOver = true;
    for (auto& thread : busy) thread.join();
    ++_round;
    return fate;
  }

  [[noreturn]] void live(KiteManagerImpl& kite, const std::string& does, const std::string& ends) {
    if (does == "track") {
      track(kite, "child", 0, 20);
      static_cast<void>(kite.userInfoKiteValue());
      kite.addSessionData("child", 1);
      kite.updateUserInfo({{"child", true}});
    }
    if (does == "destroy") _facades.clear();
    if (ends == "exit") std::exit(0);
    ::_exit(0);
  }

  static std::string awaited(pid_t child) {
    const auto end = std::chrono::steady_clock::now() + patience;
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > end) {
        ::kill(child, SIGABRT);
        ::waitpid(child, &status, 0);
        return "hung";
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                             : "signal " + std::to_string(WTERMSIG(status));
  }

  const Options _options;
  HostParts _parts{_options, ApplicationState::background};
  std::vector<std::unique_ptr<KiteManagerImpl>> _facades;
  int _round = 0;
};

}  // namespace
}  // namespace kite::faults

int main(int count, char** arguments) {
  static kite::faults::OwnersHost host{kite::faults::Options(count, arguments)};
  std::string line;
  while (std::getline(std::cin, line) && host.answer(line)) {
  }
  std::_Exit(0);
}
