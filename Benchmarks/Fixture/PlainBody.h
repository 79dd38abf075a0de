#pragma once

#include "Events/EventEncoder.h"
#include "Fixture/ReferenceEvent.h"
#include "Upload/ServerBody.h"

#include <zlib.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kite::bench {

inline EventBatch batch(int count) {
  const Shared<User> everybody(user());
  EventEncoder encoder;
  EventBatch events;
  for (int number = 0; number < count; ++number)
    events.push_back(encoder.encode(event(everybody, number)));
  return events;
}

/// The body of an upload as it is before its compression.
inline std::string plainBody(EventBatch events) {
  struct Collected final : Gzip {
    void write(std::string_view piece) override { text += piece; }
    Result<Data, GzipError> finish() override { return Data{text}; }
    std::string text;
  } collected;
  const ServerBody body{.delta = 0.5, .lastEventTimestamp = 1.5, .events = std::move(events)};
  if (body.write(collected, 1765432200.5)) return "";
  return std::move(collected.text);
}

/// zlib by itself: one call at its default level, into memory that is there already. Gives the
/// compressed size.
inline std::size_t deflateAtOnce(const std::string& text, std::vector<Bytef>& out) {
  z_stream stream{};
  constexpr int gzipWrapper = 16;
  deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, MAX_WBITS + gzipWrapper, 8,
               Z_DEFAULT_STRATEGY);
  out.resize(deflateBound(&stream, text.size()));
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  deflateEnd(&stream);
  return stream.total_out;
}

}  // namespace kite::bench
