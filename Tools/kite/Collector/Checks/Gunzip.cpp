#include "Collector/Checks/Gunzip.h"

#include <fmt/format.h>
#include <libdeflate.h>
#include <simdjson.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>

namespace kite::tool {
namespace {

constexpr std::size_t smallestStream = 18;  // head and tail
constexpr int gzipOnly = 16 + MAX_WBITS;

/// How long the stream says its text is, in its last four bytes (RFC 1952).
std::size_t announcedSize(std::string_view stream) {
  std::size_t size = 0;
  for (int i = 1; i <= 4; ++i)
    size =
        size << 8 | static_cast<std::uint8_t>(stream[stream.size() - static_cast<std::size_t>(i)]);
  return size;
}

/// The text of a whole stream, or nothing when anything is wrong with it.
std::optional<std::string> inflated(std::string_view bytes, std::size_t limit) {
  if (bytes.size() < smallestStream || announcedSize(bytes) > limit) return std::nullopt;
  thread_local const std::unique_ptr<libdeflate_decompressor,
                                     decltype(&libdeflate_free_decompressor)>
      decompressor(libdeflate_alloc_decompressor(), libdeflate_free_decompressor);
  if (!decompressor) return std::nullopt;
  std::string text;
  text.reserve(announcedSize(bytes) + simdjson::SIMDJSON_PADDING);  // or its reader copies it
  text.resize(announcedSize(bytes));
  std::size_t read = 0;
  const auto result = libdeflate_gzip_decompress_ex(decompressor.get(), bytes.data(), bytes.size(),
                                                    text.data(), text.size(), &read, nullptr);
  if (result != LIBDEFLATE_SUCCESS || read != bytes.size()) return std::nullopt;
  return text;
}

/// Why it is no stream that inflates to at most `limit` bytes. zlib stops where the fault is.
std::string reasonAgainst(std::string_view bytes, std::size_t limit) {
  z_stream stream{};
  if (inflateInit2(&stream, gzipOnly) != Z_OK) return "zlib does not start";
  const std::unique_ptr<z_stream, decltype(&inflateEnd)> guard(&stream, inflateEnd);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  std::string step(64 * 1024, '\0');
  int status = Z_OK;
  while (status == Z_OK && stream.total_out <= limit) {
    stream.next_out = reinterpret_cast<Bytef*>(step.data());
    stream.avail_out = static_cast<uInt>(step.size());
    status = inflate(&stream, Z_NO_FLUSH);
  }
  if (stream.total_out > limit) return fmt::format("inflates to more than {} bytes", limit);
  if (status == Z_BUF_ERROR) return "the gzip stream ends early";
  if (status != Z_STREAM_END) return "not a gzip stream";
  if (stream.avail_in != 0) return "bytes follow the gzip stream";
  return "there is no memory to inflate it";
}

}  // namespace

Result<std::string, std::string> gunzip(std::string_view bytes, std::size_t limit) {
  if (auto text = inflated(bytes, limit)) return *std::move(text);
  return Failure{reasonAgainst(bytes, limit)};
}

}  // namespace kite::tool
