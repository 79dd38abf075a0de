#pragma once

#include <Kite/DynamicValue.h>

#include "Core/InstallManager.h"

namespace kite {

/// What an earlier version remembered of the application; an entry of the wrong type counts as
/// absent.
///
/// Boxed numbers convert as on the platform that wrote them: an integer may stand for a timestamp,
/// and 0 or 1 for a boolean.
StoredInformations fromLegacyRecord(const DynamicValue::Dictionary& legacy);

}  // namespace kite
