#include "JSON/UTF8.h"
#include "LegacyArchive/PropertyList.h"
#include "LegacyArchive/Unicode.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <vector>

namespace kite::PropertyList {

namespace {

constexpr std::size_t referenceSize = 4;
constexpr std::size_t offsetSize = 8;

void appendBigEndian(std::string& bytes, std::uint64_t number, std::size_t size) {
  while (size-- > 0) bytes += static_cast<char>(number >> (8 * size) & 0xFF);
}

class BinaryWriter {
 public:
  static std::string write(const DynamicValue::Dictionary& dictionary) {
    BinaryWriter writer;
    writer.dictionary(dictionary, maximumDepth);
    writer.finish();
    return std::move(writer._bytes);
  }

 private:
  using Reference = std::uint64_t;
  using References = std::vector<Reference>;

  static bool isWritable(const DynamicValue& value) {
    return value.kind() != DynamicValue::Kind::null && value.kind() != DynamicValue::Kind::opaque;
  }

  // Containers come after their contents, so that each object is written in one piece.
  Reference object(const DynamicValue& value, int depth) {
    using Kind = DynamicValue::Kind;
    switch (value.kind()) {
      case Kind::boolean:
        return marked(*value.boolean() ? 0x09 : 0x08);
      case Kind::integer:
        return number(0x13, static_cast<std::uint64_t>(*value.integer()));
      case Kind::unsignedInteger:
        return largeNumber(*value.unsignedInteger());
      case Kind::real:
        return number(0x23, std::bit_cast<std::uint64_t>(*value.real()));
      case Kind::date:
        return number(0x33,
                      std::bit_cast<std::uint64_t>(value.date()->secondsSinceReferenceDate()));
      case Kind::data:
        return bytes(0x40, value.data()->bytes, value.data()->bytes.size());
      case Kind::string:
        return string(*value.string());
      case Kind::array:
        return array(*value.array(), depth);
      case Kind::dictionary:
        return dictionary(*value.dictionary(), depth);
      case Kind::null:
      case Kind::opaque:
        break;
    }
    return marked(0x00);
  }

  Reference array(const DynamicValue::Array& elements, int depth) {
    References references;
    for (const auto& element : elements)
      if (isWritable(element) && depth > 1) references.push_back(object(element, depth - 1));
    return container(0xA0, references.size(), references);
  }

  Reference dictionary(const DynamicValue::Dictionary& entries, int depth) {
    References references;
    for (const auto& entry : entries)
      if (isKept(entry, depth)) references.push_back(string(*entry.key.string()));
    const auto count = references.size();
    for (const auto& entry : entries)
      if (isKept(entry, depth)) references.push_back(object(entry.value, depth - 1));
    return container(0xD0, count, references);
  }
  static bool isKept(const DynamicValue::Entry& entry, int depth) {
    return entry.key.string() && isWritable(entry.value) && depth > 1;
  }

  Reference string(const std::string& given) {
    const auto text = repairedUTF8(given);
    const bool isASCII =
        std::all_of(text.begin(), text.end(), [](unsigned char byte) { return byte < 0x80; });
    if (isASCII) return bytes(0x50, text, text.size());
    const auto wide = toUTF16(text);
    return bytes(0x60, wide, wide.size() / 2);
  }

  Reference marked(unsigned marker) {
    _offsets.push_back(_bytes.size());
    _bytes += static_cast<char>(marker);
    return _offsets.size() - 1;
  }
  Reference number(unsigned marker, std::uint64_t bits) {
    const auto reference = marked(marker);
    appendBigEndian(_bytes, bits, 8);
    return reference;
  }
  Reference largeNumber(std::uint64_t bits) {
    const auto reference = number(0x14, 0);
    appendBigEndian(_bytes, bits, 8);
    return reference;
  }
  Reference counted(unsigned marker, std::size_t count) {
    if (count < 0x0F) return marked(marker | static_cast<unsigned>(count));
    const auto reference = marked(marker | 0x0F);
    _bytes += '\x13';
    appendBigEndian(_bytes, count, 8);
    return reference;
  }
  Reference bytes(unsigned marker, const std::string& content, std::size_t count) {
    const auto reference = counted(marker, count);
    _bytes += content;
    return reference;
  }
  Reference container(unsigned marker, std::size_t count, const References& references) {
    const auto self = counted(marker, count);
    for (const auto reference : references) appendBigEndian(_bytes, reference, referenceSize);
    return self;
  }

  // The dictionary itself was written last.
  void finish() {
    const auto tableStart = _bytes.size();
    for (const auto offset : _offsets) appendBigEndian(_bytes, offset, offsetSize);
    _bytes.append(6, '\0');
    appendBigEndian(_bytes, offsetSize, 1);
    appendBigEndian(_bytes, referenceSize, 1);
    appendBigEndian(_bytes, _offsets.size(), 8);
    appendBigEndian(_bytes, _offsets.size() - 1, 8);
    appendBigEndian(_bytes, tableStart, 8);
  }

  std::string _bytes = "bplist00";
  std::vector<std::uint64_t> _offsets;
};

}  // namespace

std::string write(const DynamicValue::Dictionary& dictionary) {
  return BinaryWriter::write(dictionary);
}

}  // namespace kite::PropertyList
