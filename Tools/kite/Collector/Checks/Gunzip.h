#pragma once

#include <Kite/Base/Result.h>

#include <string>
#include <string_view>

namespace kite::tool {

/// The text of one whole gzip stream that inflates to at most `limit` bytes, or what is wrong with
/// it. Bytes behind the stream, a second stream among them, are wrong.
Result<std::string, std::string> gunzip(std::string_view bytes, std::size_t limit);

}  // namespace kite::tool
