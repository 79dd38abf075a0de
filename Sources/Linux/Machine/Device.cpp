#include "Linux/Machine/Machine.h"

#include "Linux/Storage/PrivateFolder.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace kite::Linux {
namespace {

constexpr std::size_t longestFile = 64 * 1024;

std::string trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

std::string unquoted(std::string text) {
  const bool isQuoted = text.size() >= 2 && text.front() == text.back() &&
                        (text.front() == '"' || text.front() == '\'');
  return isQuoted ? text.substr(1, text.size() - 2) : text;
}

/// The value of `NAME=value` or `NAME="value"` in a file of such lines.
std::optional<std::string> assignment(std::string_view lines, std::string_view name) {
  while (!lines.empty()) {
    const auto end = std::min(lines.find('\n'), lines.size());
    const auto line = lines.substr(0, end);
    lines.remove_prefix(std::min(end + 1, lines.size()));
    if (!line.starts_with(name) || !line.substr(name.size()).starts_with('=')) continue;
    auto value = unquoted(trimmed(line.substr(name.size() + 1)));
    if (!value.empty()) return value;
  }
  return std::nullopt;
}

std::string systemVersion(const DeviceFiles& files) {
  auto release = readFile(files.release, longestFile);
  if (!release) release = readFile(files.vendorRelease, longestFile);
  for (const auto* name : {"VERSION_ID", "PRETTY_NAME"})
    if (const auto value = assignment(release.value_or(""), name)) return *value;
  utsname system{};
  return ::uname(&system) == 0 ? system.release : "";
}

std::string model(const DeviceFiles& files) {
  auto product = trimmed(readFile(files.product, longestFile).value_or(""));
  return product.empty() ? "Linux" : product;
}

Device::MachineField machine() {
  utsname system{};
  Device::MachineField field{};
  if (::uname(&system) == 0)
    std::memcpy(field.data(), system.machine, std::min(field.size(), sizeof system.machine));
  return field;
}

}  // namespace

std::shared_ptr<const Device> device(const DeviceFiles& files) {
  return std::make_shared<const Device>(Device{
      .systemVersion = systemVersion(files),
      .model = model(files),
      .machine = machine,
      .identifierForVendor = [] { return std::optional<std::string>(); },
  });
}

}  // namespace kite::Linux
