#pragma once

#include <Kite/Platform/Larder.h>

#include <memory>
#include <string>
#include <utility>

namespace kite::test {

/// A list element that is just a text.
class TextSegment final : public Larder::Segment {
 public:
  explicit TextSegment(std::string text) : _text(std::move(text)) {}
  std::size_t size() const override { return _text.size(); }
  void appendTo(std::string& text) const override { text += _text; }

 private:
  std::string _text;
};

inline Larder::Row row(std::uint64_t ordinal, std::string text) {
  return {ordinal, std::make_shared<const TextSegment>(std::move(text))};
}

}  // namespace kite::test
