#pragma once

#include "Linux/Storage/PageFormat.h"

#include <cstdint>
#include <span>

namespace kite::Linux {

/// A page of a database file, whose end tells whether the rest is what was written: the CRC-32 of
/// the page before it and of the page's number (both little-endian), so that a page in the wrong
/// place is noticed, too.
using Page = std::span<char, pageSize>;

void writeSum(Page page, std::uint32_t number);

/// Of a page that was never written, all bytes are 0; SQLite knows what to make of it.
bool isSound(std::span<const char, pageSize> page, std::uint32_t number);

}  // namespace kite::Linux
