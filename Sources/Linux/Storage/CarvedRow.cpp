#include "Linux/Storage/CarvedRow.h"

namespace kite::Linux {

namespace {

constexpr std::size_t longestVarint = 9;

/// Takes the number at the front of the bytes off; nothing when they end before.
std::optional<std::uint64_t> takeVarint(std::string_view& bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = 1; !bytes.empty(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes.front());
    bytes.remove_prefix(1);
    if (i == longestVarint) return number << 8 | byte;
    number = number << 7 | (byte & 0x7FU);
    if (byte < 0x80) return number;
  }
  return std::nullopt;
}

// The type of a column tells its size, too.
std::uint64_t columnSize(std::uint64_t type) {
  constexpr std::array<std::uint64_t, 12> sizes{0, 1, 2, 3, 4, 6, 8, 8, 0, 0, 0, 0};
  return type < sizes.size() ? sizes[type] : (type - 12) / 2;
}
bool isInteger(std::uint64_t type) { return (type >= 1 && type <= 6) || type == 8 || type == 9; }
bool isText(std::uint64_t type) { return type >= 13 && type % 2 == 1; }
bool isBlob(std::uint64_t type) { return type >= 12 && type % 2 == 0; }

std::int64_t integer(std::uint64_t type, std::string_view bytes) {
  if (bytes.empty()) return type == 9 ? 1 : 0;
  std::uint64_t number = static_cast<signed char>(bytes.front()) < 0 ? ~std::uint64_t{0} : 0;
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  return static_cast<std::int64_t>(number);
}

}  // namespace

std::optional<RowHead> RowHead::read(std::string_view bytes) {
  auto rest = bytes;
  const auto size = takeVarint(rest);
  const auto number = size ? takeVarint(rest) : std::nullopt;
  if (!number) return std::nullopt;
  return RowHead{*size, static_cast<std::int64_t>(*number), bytes.size() - rest.size()};
}

std::optional<RowForm> RowForm::read(std::string_view beginning, std::uint64_t size) {
  auto rest = beginning;
  const auto length = takeVarint(rest);
  const auto taken = beginning.size() - rest.size();
  if (!length || *length < taken || *length > beginning.size() || *length > size)
    return std::nullopt;
  RowForm form;
  form._length = static_cast<std::size_t>(*length);
  rest = beginning.substr(taken, form._length - taken);
  auto left = size - *length;
  for (auto& type : form._types) {
    const auto next = takeVarint(rest);
    if (!next || columnSize(*next) > left) return std::nullopt;
    type = *next;
    left -= columnSize(type);
  }
  return rest.empty() && left == 0 && form.isOurs() ? std::optional(form) : std::nullopt;
}

bool RowForm::isOurs() const {
  const auto& [first, second, third, fourth] = _types;
  const bool isEntry = isText(first) && isInteger(second);
  return (isEntry || (isListRow() && isText(second))) && isBlob(third) && isInteger(fourth);
}

CarvedRow RowForm::row(const RowHead& head, std::string_view body) const {
  std::array<std::string_view, columnCount> columns;
  auto at = _length;
  for (std::size_t i = 0; i < columnCount; ++i) {
    columns[i] = body.substr(at, columnSize(_types[i]));
    at += columns[i].size();
  }
  const auto crc = integer(_types[3], columns[3]);
  if (isListRow()) return {true, columns[1], columns[2], head.rowNumber, crc};
  return {false, columns[0], columns[2], integer(_types[1], columns[1]), crc};
}

}  // namespace kite::Linux
