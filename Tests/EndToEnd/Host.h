#pragma once

#include "EndToEnd/Folder.h"
#include "EndToEnd/JSONParts.h"
#include "EndToEnd/Processes.h"
#include "EndToEnd/Servers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace kite::test {

/// An application with a state folder, that is launched again and again.
class Application {
 public:
  Arguments options(const std::string& endpoint, const std::string& ca) const {
    return {"host", "--state",   state, "--endpoint",    endpoint, "--ca-file", ca,     "--key",
            key,    "--lumo-id", "app", "--app-version", version,  "--locale",  "en_NZ"};
  }

  Folder folder;
  std::string state = folder / "state";
  std::string log = folder / "log";  ///< standard error of all its runs
  std::string key = "secret";
  std::string version = "1.0";
};

/// One run of an application, not started yet.
class Host {
 public:
  Host(const Application& application, const std::string& endpoint, const std::string& ca,
       const Arguments& more = {}, bool asNobody = false)
      : process(joined(application.options(endpoint, ca), more),
                {.errors = application.log, .asNobody = asNobody}) {}
  Host(const Application& application, const Collector& collector, const Arguments& more = {})
      : Host(application, collector.url(), collector.ca(), more) {}

  /// Sends a line that has to succeed.
  void call(const std::string& line) {
    process.send(line);
    EXPECT_EQ(process.receive(), R"({"ok":true})") << line;
  }
  std::string ask(const std::string& line) {
    process.send(line);
    return process.receive();
  }
  /// The JSON text of a property of the facade.
  std::string read(const std::string& property) {
    return partOf(ask(R"({"op":")" + property + "\"}"), "/value");
  }
  void start() { call(R"({"op":"start"})"); }
  void enterBackground() { call(R"({"op":"didEnterBackground"})"); }
  void enterForeground() { call(R"({"op":"willEnterForeground"})"); }
  void track(const std::string& name, const std::string& data = "{}") { call(action(name, data)); }
  void quit() {
    call(R"({"op":"quit"})");
    EXPECT_EQ(process.wait(), 0);
  }

  static std::string action(const std::string& name, const std::string& data = "{}") {
    return R"({"op":"trackUserAction","name":")" + name + R"(","data":)" + data + "}";
  }

  Process process;

 private:
  static Arguments joined(Arguments first, const Arguments& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
  }
};

inline std::ptrdiff_t occurrences(const std::string& text, const std::string& wanted) {
  std::ptrdiff_t count = 0;
  for (auto at = text.find(wanted); at != text.npos; at = text.find(wanted, at + 1)) ++count;
  return count;
}

}  // namespace kite::test
