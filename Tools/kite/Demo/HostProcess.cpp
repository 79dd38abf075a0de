#include "Demo/HostProcess.h"

#include "Common/CommandFailure.h"
#include "Common/WriteJSON.h"

#include <fmt/format.h>

#include <csignal>

namespace kite::tool {
namespace {

std::vector<std::string> arguments(const std::vector<std::string>& options) {
  std::vector<std::string> result{"host"};
  result.insert(result.end(), options.begin(), options.end());
  return result;
}

}  // namespace

HostProcess::HostProcess(const std::vector<std::string>& options, const std::filesystem::path& log)
    : _process(arguments(options), {.output = {}, .errors = log}) {}

void HostProcess::call(const std::string& op, JSONValue::Object members) {
  members.insertOrAssign("op", op);
  _process.writeLine(toJSON(members));
  const auto answer = _process.readLine();
  if (answer != R"({"ok":true})") throw CommandFailure(fmt::format("{}: {}", op, answer));
}

void HostProcess::quit() {
  call("quit");
  if (const int status = _process.wait(); status != 0)
    throw CommandFailure(fmt::format("the host ended with status {}", status));
}

void HostProcess::crash() {
  call("crash");
  if (const int status = _process.wait(); status != -SIGKILL)
    throw CommandFailure(fmt::format("the host ended with status {} instead of a crash", status));
}

}  // namespace kite::tool
