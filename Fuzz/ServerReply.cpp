#include "Upload/ServerError.h"
#include "Upload/ServerResponse.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kite;

/// Any bytes as the body of a reply: they are read or not, and what is read is sound.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view body(reinterpret_cast<const char*>(bytes), size);
  if (const auto response = decodeServerResponse(body)) {
    if (!std::isfinite(response->delta) || !std::isfinite(response->lastEventTimestamp))
      std::abort();
  }
  if (const auto rejection = decodeServerErrorBody(body)) {
    for (const int status : {400, 422, 500}) {
      const auto error = ServerError::from(*rejection, status);
      if (error && (status == 500 || error->debugDescription().empty())) std::abort();
    }
  }
  return 0;
}
