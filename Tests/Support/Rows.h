#pragma once

#include <Kite/Platform/Larder.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kite::test {

/// A list element that is just a text.
class PlainText final : public Larder::ElementText {
 public:
  explicit PlainText(std::string text) : _text(std::move(text)) {}
  std::size_t size() const override { return _text.size(); }
  void appendTo(std::string& text) const override { text += _text; }

 private:
  std::string _text;
};

inline Larder::Row row(std::uint64_t ordinal, std::string text) {
  return {ordinal, std::make_shared<const PlainText>(std::move(text))};
}

/// What a store gives back of a list: ordinals, and the texts that can be read.
struct ReadRow {
  std::uint64_t ordinal;
  std::optional<std::string> text;

  friend bool operator==(const ReadRow&, const ReadRow&) = default;
};
inline std::vector<ReadRow> readRows(const Larder::SavedList& list) {
  std::vector<ReadRow> rows;
  for (const auto& [ordinal, tag, place] : list.rows) {
    auto& read = rows.emplace_back(ReadRow{ordinal, std::nullopt});
    const auto error = place.file->read(
        std::span(&place, 1), [&](std::optional<std::string_view> text) { read.text = text; });
    if (error) rows.pop_back();
  }
  return rows;
}

}  // namespace kite::test
