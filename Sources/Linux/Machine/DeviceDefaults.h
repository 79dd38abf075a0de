#pragma once

#include <Kite/Platform/Device.h>

#include <filesystem>
#include <memory>

namespace kite::Linux {

/// Files that describe the machine and its system.
struct DeviceFiles {
  std::filesystem::path release = "/etc/os-release";
  std::filesystem::path vendorRelease = "/usr/lib/os-release";
  std::filesystem::path product = "/sys/class/dmi/id/product_name";
};

/// This machine. It has no identifier for vendors.
std::shared_ptr<const Device> device(const DeviceFiles& files = {});

}  // namespace kite::Linux
