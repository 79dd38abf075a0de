#pragma once

/// Everything that a host needs; add `<Kite/Linux/LinuxPlatform.h>` on Linux.

#include <Kite/KiteDependencies.h>
#include <Kite/KiteError.h>
#include <Kite/KiteManager.h>
#include <Kite/KiteManagerImpl.h>
#include <Kite/KiteNoop.h>
#include <Kite/KiteProvider.h>
#include <Kite/TrackingConsentManager.h>
