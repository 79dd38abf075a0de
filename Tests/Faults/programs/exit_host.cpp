// A host that is started in one call, tracks and leaves.
//
//   --events N --forbidden N   user actions, with serial numbers from --from, and without consent
//   --way return|exit|quick_exit|signal   how it leaves; for `signal` it says "tracked" and waits
//   --deliver SECONDS          the limit of the last drain
//   --drain-first 1            puts everything on disk before it says so
//   --report FILE              gets a line of what the last drain did, and one of how long the way
//                              out has taken
//
// Standard output gets two lines: the ledger after the start, and "tracked".

#include <Kite/Kite.h>
#include <Kite/Linux/KiteApplication.h>

#include "Lines.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>

namespace kite::faults {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* endNames[] = {"persisted",   "delivered", "deadline",    "notPersisted",
                                    "unreachable", "refused",   "notReadable", "notRunning"};

std::string reportFile;
KiteManagerImpl* facade = nullptr;
Clock::time_point begin;

std::string member(const char* name, std::uint64_t value) {
  return std::string(",\"") + name + "\":" + std::to_string(value);
}

std::string ledgerText() {
  const auto [tracked, pending, delivered, dropped] = status(*facade).ledger;
  return "{\"tracked\":" + std::to_string(tracked) + member("pending", pending) +
         member("delivered", delivered) + member("noConsent", dropped.noConsent) +
         member("lostOnDisk", dropped.lostOnDisk) + member("dropped", dropped.total()) + "}";
}

void writeLine(const std::string& line) { std::ofstream(reportFile, std::ios::app) << line + "\n"; }

void onDrained(const DrainReport& report) {
  writeLine(std::string("{\"end\":\"") + endNames[static_cast<int>(report.end)] + "\"" +
            member("delivered", report.delivered) + member("persisted", report.persisted) +
            member("inMemory", report.inMemory) + ",\"ledger\":" + ledgerText() + "}");
}

void tellTime() {
  const std::chrono::duration<double> taken = Clock::now() - begin;
  writeLine(std::to_string(taken.count()));
}

Linux::KiteApplicationOptions optionsOf(const Options& given) {
  Linux::KiteApplicationOptions options{
      .name = "exit-host", .key = given.text("key"), .endpoint = given.text("endpoint")};
  options.dataFolder = given.text("state") + "/app";
  options.secretsFolder = given.text("state") + "/secrets";
  if (given.has("ca-file")) options.caFile = given.text("ca-file");
  options.drainLimits.deliverWithin = Tempra::Duration(given.number("deliver", 0));
  const auto way = given.text("way");
  options.drainAtExit = way == "exit" || way == "quick_exit";
  options.drainOnSignals = way == "signal";
  options.onDrained = onDrained;
  return options;
}

void track(const Options& given) {
  const auto from = static_cast<std::int64_t>(given.number("from", 0));
  const auto events = static_cast<std::int64_t>(given.number("events", 0));
  for (auto serial = from; serial < from + events; ++serial)
    facade->trackUserAction("proof", {{"serial", serial}});
  facade->setAnalyticsTrackingConsent(false);
  facade->setProfilingTrackingConsent(false);
  for (auto left = given.number("forbidden", 0); left > 0; --left)
    facade->trackUserAction("forbidden", {});
  facade->setAnalyticsTrackingConsent(true);
  facade->setProfilingTrackingConsent(true);
}

int live(const Options& given) {
  // Before the library's own handlers, so that they run after those.
  std::atexit(tellTime);
  std::at_quick_exit(tellTime);
  const auto app = Linux::KiteApplication::start(optionsOf(given));
  if (!app) return std::cerr << app.error() << '\n', 2;
  facade = &app->kite();
  std::cout << ledgerText() << std::endl;
  track(given);
  if (given.has("drain-first")) app->drain({.persistWithin = Tempra::Duration(20)});
  std::cout << "tracked" << std::endl;
  const auto way = given.text("way");
  if (way == "signal") std::cin.get();
  begin = Clock::now();
  if (way == "exit") std::exit(0);
  if (way == "quick_exit") std::quick_exit(0);
  return 0;
}

}  // namespace
}  // namespace kite::faults

int main(int count, char** arguments) {
  const kite::faults::Options options(count, arguments);
  kite::faults::reportFile = options.text("report");
  return kite::faults::live(options);
}
