#include "Host/HostOperations.h"

#include <Kite/Drain.h>

#include "Common/StatusJSON.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>

namespace kite::tool {
namespace {

constexpr double longestWait = 86'400;  // seconds

template <void (*body)(Host&)>
HostAnswer plainly(Host& host, const Arguments&) {
  body(host);
  return {};
}

const ManualSessionListener& manualSessions(const Host& host) {
  const auto* sessions = host.manualSessions();
  if (!sessions) throw BadLine("sessions are automatic; begin with --sessions manual");
  return *sessions;
}

Tempra::Duration duration(std::string_view name, double seconds) {
  if (!(seconds >= 0 && seconds <= longestWait))
    throw BadLine(fmt::format("\"{}\" must be between 0 and 86400", name));
  return Tempra::Duration(seconds);
}

HostAnswer wait(Host&, const Arguments& its) {
  std::this_thread::sleep_for(duration("seconds", its.number("seconds")));
  return {};
}

HostAnswer drain(Host& host, const Arguments& its) {
  DrainLimits limits;
  if (const auto seconds = its.optionalNumber("persistWithin"))
    limits.persistWithin = duration("persistWithin", *seconds);
  if (const auto seconds = its.optionalNumber("deliverWithin"))
    limits.deliverWithin = duration("deliverWithin", *seconds);
  auto* const kite = host.live();
  return {Next::goOn, toJSONValue(kite ? kite::drain(*kite, limits) : DrainReport{})};
}

HostAnswer status(Host& host, const Arguments&) {
  auto* const kite = host.live();
  return {Next::goOn, toJSONValue(kite ? kite::status(*kite) : Status{})};
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
      {"drain", {"persistWithin", "deliverWithin"}, drain},
      {"status", {}, status},
      {"wait", {"seconds"}, wait},
      {"crash", {}, [](auto&, auto&) { return HostAnswer{Next::crash}; }},
      {"quit", {}, [](auto&, auto&) { return HostAnswer{Next::quit}; }},
  };
  return table;
}

}  // namespace kite::tool
