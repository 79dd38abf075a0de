#pragma once

#include "Events/EventEncoder.h"
#include "Fixture/ReferenceEvent.h"
#include "Upload/ServerBody.h"

#include <libdeflate.h>

#include <memory>
#include <string>
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
  const ServerBody body{.delta = 0.5, .lastEventTimestamp = 1.5, .events = std::move(events)};
  auto text = body.text(1765432200.5);
  return text ? *std::move(text) : "";
}

/// The compressor by itself: one call, with what it needs there already. Gives the compressed size.
class Compressor {
 public:
  std::size_t compress(const std::string& text) {
    compressInto(_out, text);
    return _out.size();
  }
  void compressInto(std::string& out, const std::string& text) {
    out.resize(libdeflate_gzip_compress_bound(_compressor.get(), text.size()));
    out.resize(libdeflate_gzip_compress(_compressor.get(), text.data(), text.size(), out.data(),
                                        out.size()));
  }

 private:
  static constexpr int level = 6;
  std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> _compressor{
      libdeflate_alloc_compressor(level), libdeflate_free_compressor};
  std::string _out;
};

}  // namespace kite::bench
