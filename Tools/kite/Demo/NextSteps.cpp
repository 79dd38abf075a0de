#include "Demo/NextSteps.h"

#include <fmt/format.h>

#include <string>
#include <string_view>
#include <system_error>

namespace kite::tool {
namespace {

constexpr std::string_view steps = R"(
What arrived:
  sqlite3 {database} 'SELECT type, count(*) FROM events GROUP BY type'
What the host keeps:
  {kite} store --state {folder} keys
A collector and a host of your own:
  {kite} collect --listen {address} --key secret --db {ownDatabase} --self-signed {tls} & sleep 1
  printf '%s\n' '{{"op":"start"}}' '{{"op":"trackUserAction","name":"buy","data":{{"price":9.5}}}}' '{{"op":"drain","deliverWithin":3}}' |
    {kite} host --state {own} --endpoint https://{address}/v4/events --ca-file {ca} --key secret
  sqlite3 {ownDatabase} 'SELECT type, data FROM events'
  kill %1
In an application: the sample in README.md
)";

/// One word to a shell.
std::string quoted(const std::filesystem::path& path) {
  constexpr std::string_view plain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-";
  const auto& text = path.native();
  if (text.find_first_not_of(plain) == text.npos) return text;
  std::string result = "'";
  for (const char c : text) result += c == '\'' ? R"('\'')" : std::string(1, c);
  return result + "'";
}

std::filesystem::path thisProgram() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "kite" : program;
}

}  // namespace

void printNextSteps(const Audience& audience, const std::filesystem::path& folder,
                    const std::string& address) {
  fmt::print(audience.out, steps, fmt::arg("address", address),
             fmt::arg("database", quoted(folder / "collector" / "events.db")),
             fmt::arg("folder", quoted(folder)), fmt::arg("kite", quoted(thisProgram())),
             fmt::arg("own", quoted(folder / "own")),
             fmt::arg("ownDatabase", quoted(folder / "own.db")),
             fmt::arg("ca", quoted(folder / "collector" / "certificates" / "ca.pem")),
             fmt::arg("tls", quoted(folder / "collector" / "certificates")));
}

}  // namespace kite::tool
