#include "LegacyArchive/Allowance.h"
#include "LegacyArchive/PropertyList.h"
#include "LegacyArchive/Unicode.h"

#include <bit>
#include <cstdint>
#include <utility>

namespace kite::PropertyList {

namespace {

constexpr std::string_view magic = "bplist0";
constexpr std::size_t headerSize = 8;
constexpr std::size_t trailerSize = 32;

std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

double realFrom(std::string_view bytes) {
  const auto bits = bigEndian(bytes);
  return bytes.size() == 4 ? double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))}
                           : std::bit_cast<double>(bits);
}

std::optional<DynamicValue> integerFrom(std::string_view bytes) {
  if (bytes.size() <= 8) return static_cast<std::int64_t>(bigEndian(bytes));
  // Sixteen bytes are how the numbers between 2^63 and 2^64 are written.
  if (bigEndian(bytes.substr(0, 8)) != 0) return std::nullopt;
  return bigEndian(bytes.substr(8));
}

/// The bytes between header and trailer, taken object by object.
class BinaryReader {
 public:
  static std::optional<DynamicValue> read(std::string_view document) {
    if (document.size() < headerSize + trailerSize || !document.starts_with(magic))
      return std::nullopt;
    BinaryReader reader(document);
    if (!reader.hasSoundTrailer()) return std::nullopt;
    return reader.object(reader._top, maximumDepth);
  }

 private:
  using Value = std::optional<DynamicValue>;

  explicit BinaryReader(std::string_view document) : _allowance(document.size()) {
    const auto trailer = document.substr(document.size() - trailerSize);
    _offsetSize = static_cast<unsigned char>(trailer[6]);
    _referenceSize = static_cast<unsigned char>(trailer[7]);
    _count = bigEndian(trailer.substr(8, 8));
    _top = bigEndian(trailer.substr(16, 8));
    _tableStart = bigEndian(trailer.substr(24, 8));
    _body = document.substr(0, document.size() - trailerSize);
  }

  bool hasSoundTrailer() {
    if (_offsetSize < 1 || _offsetSize > 8 || _referenceSize < 1 || _referenceSize > 8)
      return false;
    if (_tableStart < headerSize || _tableStart > _body.size()) return false;
    if (_count > (_body.size() - _tableStart) / _offsetSize) return false;
    _table = _body.substr(_tableStart);
    _body = _body.substr(0, _tableStart);
    return true;
  }

  Value object(std::uint64_t index, int depth) {
    if (index >= _count || depth == 0 || !_allowance.spend()) return std::nullopt;
    const auto offset = bigEndian(_table.substr(index * _offsetSize, _offsetSize));
    if (offset < headerSize || offset >= _body.size()) return std::nullopt;
    auto rest = _body.substr(offset);
    const auto marker = static_cast<unsigned char>(rest.front());
    rest.remove_prefix(1);
    return objectOfKind(marker >> 4, marker & 0x0F, rest, depth);
  }

  Value objectOfKind(int kind, unsigned detail, std::string_view rest, int depth) {
    switch (kind) {
      case 0x0:
        return constant(detail);
      case 0x1:
        return detail <= 4 && sized(rest, 1u << detail) ? integerFrom(rest) : std::nullopt;
      case 0x2:
        return (detail == 2 || detail == 3) && sized(rest, 1u << detail) ? Value(realFrom(rest))
                                                                         : std::nullopt;
      case 0x3:
        return detail == 3 && sized(rest, 8) ? Value(Date::sinceReferenceDate(realFrom(rest)))
                                             : std::nullopt;
      case 0x8:
        return reference(detail, rest);
      default:
        return counted(kind, detail, rest, depth);
    }
  }

  static Value constant(unsigned detail) {
    if (detail == 0) return DynamicValue::NullObject{};
    if (detail == 8 || detail == 9) return detail == 9;
    return std::nullopt;
  }

  Value reference(unsigned detail, std::string_view rest) {
    if (!sized(rest, detail + 1) || rest.size() > 8 || !_allowance.spend(referenceKey.size()))
      return std::nullopt;
    return DynamicValue::Dictionary{{std::string(referenceKey), bigEndian(rest)}};
  }

  Value counted(int kind, unsigned detail, std::string_view rest, int depth) {
    std::uint64_t count = detail;
    if (detail == 0x0F && !readCount(rest, count)) return std::nullopt;
    switch (kind) {
      case 0x4:
        return content(rest, count) ? Value(Data{std::string(rest)}) : std::nullopt;
      case 0x5:
      case 0x7:
        return content(rest, count) ? Value(std::string(rest)) : std::nullopt;
      case 0x6:
        return count <= rest.size() / 2 && content(rest, 2 * count) ? Value(fromUTF16(rest))
                                                                    : std::nullopt;
      case 0xA:
        return array(rest, count, depth);
      case 0xD:
        return dictionary(rest, count, depth);
      default:
        return std::nullopt;
    }
  }

  Value array(std::string_view rest, std::uint64_t count, int depth) {
    if (count > rest.size() / _referenceSize) return std::nullopt;
    DynamicValue::Array elements;
    for (std::uint64_t i = 0; i < count; ++i) {
      auto element = object(referenceAt(rest, i), depth - 1);
      if (!element) return std::nullopt;
      elements.push_back(*std::move(element));
    }
    return DynamicValue(std::move(elements));
  }

  Value dictionary(std::string_view rest, std::uint64_t count, int depth) {
    if (count > rest.size() / _referenceSize / 2) return std::nullopt;
    DynamicValue::Dictionary entries;
    for (std::uint64_t i = 0; i < count; ++i) {
      auto key = object(referenceAt(rest, i), depth - 1);
      auto value = key ? object(referenceAt(rest, count + i), depth - 1) : std::nullopt;
      if (!value) return std::nullopt;
      entries.push_back({*std::move(key), *std::move(value)});
    }
    return DynamicValue(std::move(entries));
  }

  std::uint64_t referenceAt(std::string_view references, std::uint64_t place) const {
    return bigEndian(references.substr(place * _referenceSize, _referenceSize));
  }

  // A count above 14 follows the marker as an integer object.
  static bool readCount(std::string_view& rest, std::uint64_t& count) {
    if (rest.empty()) return false;
    const auto marker = static_cast<unsigned char>(rest.front());
    const std::size_t size = std::size_t{1} << (marker & 0x0F);
    if (marker >> 4 != 0x1 || size > 8 || rest.size() <= size) return false;
    count = bigEndian(rest.substr(1, size));
    rest.remove_prefix(1 + size);
    return true;
  }

  /// Cuts `rest` to `size` bytes, if it has as many.
  static bool sized(std::string_view& rest, std::uint64_t size) {
    if (size > rest.size()) return false;
    rest = rest.substr(0, size);
    return true;
  }
  bool content(std::string_view& rest, std::uint64_t size) {
    return sized(rest, size) && _allowance.spend(size);
  }

  Allowance _allowance;
  std::string_view _body;
  std::string_view _table;
  std::size_t _offsetSize = 0;
  std::size_t _referenceSize = 0;
  std::uint64_t _count = 0;
  std::uint64_t _top = 0;
  std::uint64_t _tableStart = 0;
};

}  // namespace

std::optional<DynamicValue> read(std::string_view document) {
  if (document.size() > maximumSize) return std::nullopt;
  return document.starts_with(magic) ? BinaryReader::read(document) : readXML(document);
}

}  // namespace kite::PropertyList
