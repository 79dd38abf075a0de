#pragma once

#include <zlib.h>

#include <array>
#include <optional>
#include <string>

namespace kite::test {

/// What one whole gzip stream unpacks to; nothing when `bytes` are anything else.
inline std::optional<std::string> gunzip(std::string bytes) {
  constexpr int gzipWrapperOnly = 16;
  z_stream stream{};
  if (inflateInit2(&stream, MAX_WBITS + gzipWrapperOnly) != Z_OK) return std::nullopt;
  stream.next_in = reinterpret_cast<Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  std::string text;
  std::array<char, 16384> out;
  int status = Z_OK;
  while (status == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    status = inflate(&stream, Z_NO_FLUSH);
    text.append(out.data(), out.size() - stream.avail_out);
  }
  const bool isWhole = status == Z_STREAM_END && stream.avail_in == 0;
  inflateEnd(&stream);
  return isWhole ? std::optional(text) : std::nullopt;
}

}  // namespace kite::test
