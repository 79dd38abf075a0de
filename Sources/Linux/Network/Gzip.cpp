#include <Kite/Platform/Gzip.h>

#include <libdeflate.h>

#include <memory>
#include <new>

namespace kite {
namespace {

// The lowest level whose stream of a full batch is no longer than that of zlib's default level.
constexpr int levelOfDefault = 6;

struct FreeCompressor {
  void operator()(libdeflate_compressor* compressor) const {
    libdeflate_free_compressor(compressor);
  }
};

Data compressed(libdeflate_compressor& compressor, std::string_view bytes) {
  const auto most = libdeflate_gzip_compress_bound(&compressor, bytes.size());
  const std::unique_ptr<char[]> out(new char[most]);
  const auto size =
      libdeflate_gzip_compress(&compressor, bytes.data(), bytes.size(), out.get(), most);
  return Data{std::string(out.get(), size)};
}

}  // namespace

Result<Data, GzipError> gzipped(std::string_view bytes, int level) {
  if (level != defaultGzipLevel && (level < 1 || level > 9))
    return Failure{GzipError{"there is no level " + std::to_string(level)}};
  try {
    const std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor(
        libdeflate_alloc_compressor(level == defaultGzipLevel ? levelOfDefault : level));
    if (!compressor) return Failure{GzipError{"no memory"}};
    return compressed(*compressor, bytes);
  } catch (const std::bad_alloc&) {
    return Failure{GzipError{"no memory"}};
  }
}

}  // namespace kite
