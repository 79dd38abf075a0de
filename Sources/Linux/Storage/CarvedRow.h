#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kite::Linux {

/// What has the form of a row of a store's; whether it is one, its checksum tells.
struct CarvedRow {
  bool isListRow;
  std::string_view key, bytes;
  std::int64_t number;  ///< the place of a list's row, or the kind of an entry
  std::int64_t crc;
};

/// The beginning of a row in a page, as SQLite's format has it.
struct RowHead {
  std::uint64_t size;      ///< of all that follows, wherever it stands
  std::int64_t rowNumber;  ///< the place of a list's row
  std::size_t length;      ///< of the head itself

  /// Nothing when the bytes are no head.
  static std::optional<RowHead> read(std::string_view bytes);
};

/// Which columns a row has, and how long they are.
class RowForm {
 public:
  /// Nothing when the row cannot be one of a store's; `beginning` need not be all of it.
  static std::optional<RowForm> read(std::string_view beginning, std::uint64_t size);

  bool isListRow() const { return _types[0] == 0; }
  /// `body` must have the size that the form was read for.
  CarvedRow row(const RowHead& head, std::string_view body) const;

 private:
  static constexpr std::size_t columnCount = 4;

  bool isOurs() const;

  std::array<std::uint64_t, columnCount> _types{};
  std::size_t _length = 0;  // of the form itself, in front of the columns
};

}  // namespace kite::Linux
