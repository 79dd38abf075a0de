#pragma once

#include <Kite/Platform/System.h>

#include "Linux/Storage/PrivateFolder.h"
#include "Linux/Storage/Seal.h"

#include <memory>

namespace kite::Linux {

/// The key in the folder's file "master.key"; null when there is none that can be read.
std::shared_ptr<const MasterKey> readMasterKey(const PrivateFolder& folder);

/// The same; when there is none it is made. A file that holds no key is set aside. Null when a new
/// key cannot be kept, and when the file cannot be read this time.
std::shared_ptr<const MasterKey> readOrMakeMasterKey(const PrivateFolder& folder,
                                                     const System& system);

/// Puts the key into a folder that has none yet; false unless the folder has this one then.
bool keepMasterKey(const PrivateFolder& folder, const MasterKey& key);

}  // namespace kite::Linux
