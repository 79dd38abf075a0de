#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>

namespace kite {

/// The device that the application runs on.
struct Device {
  /// The machine field of the system's `uname` record, zero-filled.
  using MachineField = std::array<char, 256>;

  std::string systemVersion;
  std::string model;
  std::function<MachineField()> machine;
  /// The identifier shared by one vendor's applications on this device, when the platform has one.
  std::function<std::optional<std::string>()> identifierForVendor;
};

}  // namespace kite
