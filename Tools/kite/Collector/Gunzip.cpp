#include "Collector/Gunzip.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <memory>

namespace kite::tool {
namespace {

constexpr int gzipOnly = 16 + MAX_WBITS;
constexpr std::size_t firstStep = 64 * 1024;

Failure<std::string> failure(std::string text) { return {std::move(text)}; }

/// Inflates into `text`, growing it step by step up to one byte more than `limit`.
int inflateInto(std::string& text, z_stream& stream, std::size_t limit) {
  int status = Z_OK;
  while (status == Z_OK && text.size() <= limit) {
    const std::size_t filled = text.size();
    const std::size_t grown = std::min(std::max(firstStep, 2 * filled), limit + 1);
    text.resize(grown);
    stream.next_out = reinterpret_cast<Bytef*>(text.data() + filled);
    stream.avail_out = static_cast<uInt>(grown - filled);
    status = inflate(&stream, Z_NO_FLUSH);
    text.resize(grown - stream.avail_out);
  }
  return status;
}

}  // namespace

Result<std::string, std::string> gunzip(std::string_view bytes, std::size_t limit) {
  z_stream stream{};
  if (inflateInit2(&stream, gzipOnly) != Z_OK) return failure("zlib does not start");
  const std::unique_ptr<z_stream, decltype(&inflateEnd)> guard(&stream, inflateEnd);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());

  std::string text;
  const int status = inflateInto(text, stream, limit);
  if (text.size() > limit) return failure(fmt::format("inflates to more than {} bytes", limit));
  if (status == Z_BUF_ERROR) return failure("the gzip stream ends early");
  if (status != Z_STREAM_END) return failure("not a gzip stream");
  if (stream.avail_in != 0) return failure("bytes follow the gzip stream");
  return text;
}

}  // namespace kite::tool
