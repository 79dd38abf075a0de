#pragma once

#include <Kite/Base/Data.h>
#include <Kite/Base/Result.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kite {

struct GzipError {
  std::string message;

  friend bool operator==(const GzipError&, const GzipError&) = default;
};

/// Compresses bytes that come in pieces into one gzip stream (RFC 1952). For one stream, on one
/// thread at a time.
class Gzip {
 public:
  static constexpr int defaultLevel = -1;

  virtual ~Gzip() = default;
  /// An error is remembered and told by `finish`.
  virtual void write(std::string_view piece) = 0;
  /// The whole stream. Call once, last.
  virtual Result<Data, GzipError> finish() = 0;

  static std::unique_ptr<Gzip> zlib(int level);
};

using GzipFactory = std::function<std::unique_ptr<Gzip>(int level)>;

}  // namespace kite
