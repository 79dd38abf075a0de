#pragma once

#include <simdjson.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace kite::test {

/// Stands in front of the JSON parser and counts how often one is made, on any thread: every
/// decoding of a record makes one.
class CountedParsers final : public simdjson::implementation {
 public:
  static std::uint64_t made() { return instance()._made; }

  simdjson::error_code create_dom_parser_implementation(
      std::size_t capacity, std::size_t maximumDepth,
      std::unique_ptr<simdjson::internal::dom_parser_implementation>& parser)
      const noexcept override {
    ++_made;
    return _real.create_dom_parser_implementation(capacity, maximumDepth, parser);
  }
  simdjson::error_code minify(const std::uint8_t* text, std::size_t size, std::uint8_t* out,
                              std::size_t& outSize) const noexcept override {
    return _real.minify(text, size, out, outSize);
  }
  bool validate_utf8(const char* text, std::size_t size) const noexcept override {
    return _real.validate_utf8(text, size);
  }

 private:
  explicit CountedParsers(const simdjson::implementation& real)
      : implementation("counted", "counts parsers", 0), _real(real) {}

  static const CountedParsers& instance() {
    static const auto& installed = [&]() -> const CountedParsers& {
      // The first question makes the library choose the implementation for this processor.
      static_cast<void>(simdjson::get_active_implementation()->name());
      static const CountedParsers counted(*simdjson::get_active_implementation());
      simdjson::get_active_implementation() = &counted;
      return counted;
    }();
    return installed;
  }

  const simdjson::implementation& _real;
  mutable std::atomic<std::uint64_t> _made = 0;
};

}  // namespace kite::test
