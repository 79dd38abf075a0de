#include "Application/CheckedOptions.h"

#include "Linux/Storage/PrivateFolder.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

namespace kite::Linux {
namespace {

/// Why a value cannot be used, or nothing.
using Fault = std::optional<std::string>;

constexpr std::size_t longestName = 200;  // folders are named after it, and their files too
constexpr std::size_t largestCAFile = 64 * 1024 * 1024;

Fault faultOfName(const std::string& name) {
  if (name.empty()) return "is empty";
  if (name == "." || name == ".." || name.find('/') != name.npos)
    return "is no file name, and folders are named after it";
  if (name.size() > longestName) return "is longer than 200 bytes";
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  if (std::ranges::any_of(name, isControl)) return "holds a control character";
  return std::nullopt;
}

Fault faultOfKey(const std::string& key) {
  if (key.empty()) return "is empty: give it here or in KITE_KEY";
  if (std::ranges::all_of(key, [](char c) { return c == '\0'; })) return "consists of zero bytes";
  return std::nullopt;
}

/// Whether a name is reserved, so that no server can ever answer to it (RFC 2606).
bool cannotExist(const URL& url) {
  auto host = url.origin().substr(url.scheme().size() + 3);
  if (const auto port = host.rfind(':'); port != host.npos && !host.ends_with(']'))
    host.resize(port);
  std::ranges::transform(host, host.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  constexpr std::array reserved{".example", ".invalid", ".example.com", ".example.net",
                                ".example.org"};
  return std::ranges::any_of(reserved,
                             [&](std::string_view name) { return ("." + host).ends_with(name); });
}

/// Never repeats the URL, whose user information, path and query may be secret.
Result<URL, std::string> parsedEndpoint(const std::string& text) {
  auto url = URL::parse(text);
  if (!url) return Failure{"is no URL: " + url.error()};
  if (url->scheme() != "https")
    return Failure{url->origin() + " is refused: events go over HTTPS only"};
  if (cannotExist(*url))
    return Failure{url->origin() + " is refused: the name is reserved, so no server has it"};
  return url;
}

Fault faultOfCAFile(const std::filesystem::path& file) {
  if (!file.is_absolute()) return "is relative: give an absolute path";
  const auto contents = readFile(file, largestCAFile);
  if (!contents) return file.string() + " cannot be read";
  if (contents->find("-----BEGIN ") == contents->npos)
    return file.string() + " holds no certificate (PEM)";
  return std::nullopt;
}

Fault faultOfFolder(const std::filesystem::path& folder) {
  if (!folder.is_absolute()) return "is relative: give an absolute path";
  const auto opened = PrivateFolder::open(folder, /*make=*/true);
  return opened ? std::nullopt : std::optional(opened.error());
}

Failure<std::string> failure(std::string_view option, const std::string& reason) {
  return Failure{std::string(option) + " " + reason};
}

}  // namespace

Result<CheckedOptions, std::string> check(KiteApplicationOptions options,
                                          const Environment& environment) {
  if (options.key.empty()) options.key = environment("KITE_KEY").value_or("");
  if (options.endpoint.empty()) options.endpoint = environment("KITE_ENDPOINT").value_or("");
  if (!options.caFile) options.caFile = environment("KITE_CA_FILE");
  options.debug = options.debug || environment("KITE_DEBUG") == "1";

  if (const auto fault = faultOfName(options.name)) return failure("name", *fault);
  if (const auto fault = faultOfKey(options.key)) return failure("key", *fault);
  if (options.endpoint.empty())
    return failure("endpoint", "is empty: give it here or in KITE_ENDPOINT");
  const auto endpoint = parsedEndpoint(options.endpoint);
  if (!endpoint) return failure("endpoint", endpoint.error());
  std::vector<URL> fallbacks;
  for (const auto& text : options.fallbackEndpoints) {
    const auto fallback = parsedEndpoint(text);
    if (!fallback) return failure("fallbackEndpoints", fallback.error());
    fallbacks.push_back(*fallback);
  }
  if (options.caFile)
    if (const auto fault = faultOfCAFile(*options.caFile)) return failure("caFile", *fault);
  const auto folders = foldersFor({.applicationName = options.name,
                                   .dataFolder = options.dataFolder,
                                   .secretsFolder = options.secretsFolder},
                                  environment);
  if (const auto fault = faultOfFolder(folders.data)) return failure("dataFolder", *fault);
  if (const auto fault = faultOfFolder(folders.secrets)) return failure("secretsFolder", *fault);
  return CheckedOptions{std::move(options), *endpoint, std::move(fallbacks)};
}

}  // namespace kite::Linux
