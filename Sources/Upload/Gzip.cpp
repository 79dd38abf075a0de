#include "Upload/Gzip.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace kite {
namespace {

class ZlibGzip final : public Gzip {
 public:
  explicit ZlibGzip(int level) {
    constexpr int gzipWrapper = 16;
    constexpr int defaultMemoryLevel = 8;
    _status = deflateInit2(&_stream, level, Z_DEFLATED, MAX_WBITS + gzipWrapper, defaultMemoryLevel,
                           Z_DEFAULT_STRATEGY);
  }
  ~ZlibGzip() override { deflateEnd(&_stream); }
  ZlibGzip(const ZlibGzip&) = delete;
  ZlibGzip& operator=(const ZlibGzip&) = delete;

  void write(std::string_view piece) override {
    constexpr std::size_t atOnce = std::numeric_limits<uInt>::max();
    for (; !piece.empty(); piece.remove_prefix(std::min(piece.size(), atOnce)))
      deflatePiece(piece.substr(0, atOnce), Z_NO_FLUSH);
  }

  Result<Data, GzipError> finish() override {
    deflatePiece({}, Z_FINISH);
    if (_status != Z_STREAM_END) return Failure{GzipError{message()}};
    return Data{std::move(_compressed)};
  }

 private:
  void deflatePiece(std::string_view piece, int flush) {
    if (_status != Z_OK) return;
    _stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
    _stream.avail_in = static_cast<uInt>(piece.size());
    std::array<char, 16384> out;
    do {
      _stream.next_out = reinterpret_cast<Bytef*>(out.data());
      _stream.avail_out = static_cast<uInt>(out.size());
      _status = deflate(&_stream, flush);
      _compressed.append(out.data(), out.size() - _stream.avail_out);
    } while (_stream.avail_out == 0 && (_status == Z_OK));
    // Having nothing to do is no error.
    if (_status == Z_BUF_ERROR && flush == Z_NO_FLUSH) _status = Z_OK;
  }
  std::string message() const { return _stream.msg ? _stream.msg : zError(_status); }

  z_stream _stream{};
  int _status = Z_OK;
  std::string _compressed;
};

}  // namespace

std::unique_ptr<Gzip> Gzip::zlib(int level) { return std::make_unique<ZlibGzip>(level); }

}  // namespace kite
