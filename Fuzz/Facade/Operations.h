#pragma once

#include "Facade/ModelledHost.h"
#include "Facade/RandomBytes.h"

namespace kite::fuzz {

/// Does the next thing that the bytes stand for.
void operate(ModelledHost& host, RandomBytes& random);

}  // namespace kite::fuzz
