#include "Profile/PlatformForKite.h"

#include <Kite/Base/FatalError.h>

namespace kite {

// Zero bytes are passed over, not taken as the end.
std::string platformForKite(const Device& device) {
  std::string model;
  for (const char byte : device.machine()) {
    if ((static_cast<unsigned char>(byte) & 0x80U) != 0)
      fatalError("The device's machine name is not ASCII");
    if (byte != 0) model.push_back(byte);
  }
  return model;
}

}  // namespace kite
