#pragma once

#include <Kite/Platform/Device.h>

#include <string>

namespace kite {

/// The hardware model of the device, for instance "ABC1,2". A byte outside ASCII stops the process.
std::string platformForKite(const Device& device);

}  // namespace kite
