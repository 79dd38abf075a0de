#pragma once

#include <Kite/DynamicValue.h>

#include "Install/InstallManager.h"

namespace kite {

/// What an earlier version remembered of the application; an entry of the wrong type counts as
/// absent.
///
/// No number stands for another type: a timestamp is a real, and a flag is a boolean.
StoredInformations fromLegacyRecord(const DynamicValue::Dictionary& legacy);

}  // namespace kite
