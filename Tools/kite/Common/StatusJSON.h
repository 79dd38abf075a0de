#pragma once

#include <Kite/Drain.h>
#include <Kite/JSONValue.h>
#include <Kite/Status.h>

namespace kite::tool {

JSONValue toJSONValue(const DrainReport& report);
JSONValue toJSONValue(const Status& status);

}  // namespace kite::tool
