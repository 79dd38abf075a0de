#include "Demo/CollectorProcess.h"

#include "Common/CommandFailure.h"
#include "Common/ParseJSON.h"
#include "Common/ReadFile.h"

#include <chrono>
#include <sstream>
#include <thread>

namespace kite::tool {
namespace {

std::vector<std::string> arguments(const std::filesystem::path& folder, const std::string& key,
                                   const std::vector<std::string>& faults, bool isInspected) {
  std::vector<std::string> result{"collect",
                                  "--listen",
                                  "127.0.0.1:0",
                                  "--key",
                                  key,
                                  "--db",
                                  folder / "events.db",
                                  "--self-signed",
                                  folder / "certificates"};
  for (const auto& fault : faults) result.insert(result.end(), {"--fault", fault});
  if (isInspected) result.emplace_back("--inspect");
  return result;
}

/// A member of a line of JSON that is a text.
std::string text(const std::string& line, std::string_view key) {
  const auto json = parseJSON(line);
  const auto* members = json ? json->object() : nullptr;
  const auto* value = members ? members->at(key) : nullptr;
  if (!value || !value->string()) throw CommandFailure("the collector does not listen");
  return *value->string();
}

}  // namespace

CollectorProcess::CollectorProcess(std::filesystem::path folder, const std::string& key,
                                   const std::vector<std::string>& faults, bool isInspected)
    : _folder(std::move(folder)),
      _process(arguments(_folder, key, faults, isInspected),
               {.output = log(), .errors = _folder / "collector.log"}) {
  const std::string listening = waitForLine(0);
  _url = text(listening, "url");
  _ca = text(listening, "ca");
  if (isInspected) _page = text(waitForLine(1), "url");
}

std::string CollectorProcess::waitForLine(std::size_t number) {
  for (;;) {
    std::istringstream lines(readFile(log()));
    std::string line;
    std::size_t at = 0;
    while (std::getline(lines, line) && !lines.eof()) {
      if (at++ == number) return line;
    }
    if (_process.hasEnded())
      throw CommandFailure("the collector ended: " + readFile(_folder / "collector.log"));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

std::string CollectorProcess::address() const {
  const auto start = _url.find("//") + 2;
  return _url.substr(start, _url.find('/', start) - start);
}

std::size_t CollectorProcess::refusals() const {
  std::size_t count = 0;
  std::istringstream lines(readFile(log()));
  for (std::string line; std::getline(lines, line);) {
    const auto json = parseJSON(line);
    const auto* members = json ? json->object() : nullptr;
    count += members && members->contains("error_code") && !members->contains("fault");
  }
  return count;
}

}  // namespace kite::tool
