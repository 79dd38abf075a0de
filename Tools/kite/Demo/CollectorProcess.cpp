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
                                   const std::vector<std::string>& faults) {
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
  return result;
}

std::string text(const JSONValue::Object& members, std::string_view key) {
  const auto* value = members.at(key);
  return value && value->string() ? *value->string() : "";
}

}  // namespace

CollectorProcess::CollectorProcess(std::filesystem::path folder, const std::string& key,
                                   const std::vector<std::string>& faults)
    : _folder(std::move(folder)),
      _process(arguments(_folder, key, faults),
               {.output = log(), .errors = _folder / "collector.log"}) {
  std::string line;
  while (line.find('\n') == line.npos) {
    if (_process.hasEnded())
      throw CommandFailure("the collector ended: " + readFile(_folder / "collector.log"));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    line = readFile(log());
  }
  const auto listening = parseJSON(line.substr(0, line.find('\n')));
  if (!listening || !listening->object()) throw CommandFailure("the collector does not listen");
  _url = text(*listening->object(), "url");
  _ca = text(*listening->object(), "ca");
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
