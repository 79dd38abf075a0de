#include "Host/HostOperations.h"

#include <chrono>
#include <thread>

namespace kite::tool {
namespace {

constexpr double longestWait = 86'400;  // seconds

template <void (*body)(Host&)>
Next plainly(Host& host, const Arguments&) {
  body(host);
  return Next::goOn;
}

const ManualSessionListener& manualSessions(const Host& host) {
  const auto* sessions = host.manualSessions();
  if (!sessions) throw BadLine("sessions are automatic; begin with --sessions manual");
  return *sessions;
}

Next wait(Host&, const Arguments& its) {
  const auto seconds = its.number("seconds");
  if (seconds < 0 || seconds > longestWait)
    throw BadLine("\"seconds\" must be between 0 and 86400");
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  return Next::goOn;
}

void start(Host& host) { host.start(); }
void awaitStorage(Host& host) { host.awaitStorage(); }
void willEnterForeground(Host& host) { host.application().willEnterForeground(); }
void didEnterBackground(Host& host) { host.application().didEnterBackground(); }
void triggerSessionStart(Host& host) { manualSessions(host).triggerSessionStart(); }
void triggerSessionEnd(Host& host) { manualSessions(host).triggerSessionEnd(); }

}  // namespace

const std::vector<HostOperation>& hostOperations() {
  static const std::vector<HostOperation> table{
      {"start", {}, plainly<start>},
      {"willEnterForeground", {}, plainly<willEnterForeground>},
      {"didEnterBackground", {}, plainly<didEnterBackground>},
      {"triggerSessionStart", {}, plainly<triggerSessionStart>},
      {"triggerSessionEnd", {}, plainly<triggerSessionEnd>},
      {"awaitStorage", {}, plainly<awaitStorage>},
      {"wait", {"seconds"}, wait},
      {"crash", {}, [](auto&, auto&) { return Next::crash; }},
      {"quit", {}, [](auto&, auto&) { return Next::quit; }},
  };
  return table;
}

}  // namespace kite::tool
