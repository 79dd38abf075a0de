#pragma once

/// Marks what a shared build of the library offers; everything else stays hidden.
#define KITE_EXPORT __attribute__((visibility("default")))
