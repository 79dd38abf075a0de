#pragma once

#include <Kite/Base/Data.h>
#include <Kite/Base/Export.h>
#include <Kite/Base/Result.h>

#include <string>
#include <string_view>

namespace kite {

struct GzipError {
  std::string message;

  friend bool operator==(const GzipError&, const GzipError&) = default;
};

inline constexpr int defaultGzipLevel = -1;

/// The bytes as one gzip member (RFC 1952). Implemented by the platform. `level` goes from 1, fast,
/// to 9, small; the default one is at least as small as zlib's. Want of memory is an error, too.
KITE_EXPORT Result<Data, GzipError> gzipped(std::string_view bytes, int level);

}  // namespace kite
