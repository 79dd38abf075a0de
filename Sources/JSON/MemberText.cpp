#include "JSON/MemberText.h"

#include "JSON/PackedMembers.h"
#include "JSON/Pen.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kite {

using PackedMembers::Kind;

namespace {

/// The first bytes of a name as a number, so that numbers compare as names do.
std::uint64_t prefixOf(std::string_view name) {
  std::uint64_t prefix = 0;
  name.copy(reinterpret_cast<char*>(&prefix), sizeof prefix);
  return std::endian::native == std::endian::little ? __builtin_bswap64(prefix) : prefix;
}

}  // namespace

/// Writes members in the order of their names, which are sorted where they are.
///
/// It gives up on what needs an object after all: more members than there are places, two of one
/// name, text that is not written as it is, a value that does not encode.
class MemberText {
 public:
  explicit MemberText(const KiteData& data) : _data(data) {}

  /// False when it gave up; `out` may then hold a part.
  bool append(std::string& out, int enclosingContainers) {
    return enclosingContainers < maximumEncodedDepth && collect() && sort() &&
           write(out, enclosingContainers);
  }

 private:
  static constexpr std::size_t places = 64;
  static constexpr std::size_t roomForMarks = 8;

  struct Member {
    std::uint64_t prefix;
    const char* name;
    const char* value;
    const KiteValue* other;
    std::size_t nameSize;
    std::size_t valueSize;
    Kind kind;

    std::string_view nameText() const { return {name, nameSize}; }
    std::string_view packedValue() const { return {value, valueSize}; }
    bool hasNameOf(const Member& another) const { return nameText() == another.nameText(); }
    bool isBefore(const Member& another) const {
      return prefix == another.prefix ? nameText() < another.nameText() : prefix < another.prefix;
    }
  };

  bool collect() {
    auto other = _data._others.begin();
    for (PackedMembers::Unpacking rest(_data._packed); !rest.isAtEnd(); ++_count) {
      if (_count == places) return false;
      const Kind kind = rest.kind();
      const auto name = rest.text();
      const auto value = rest.value(kind);
      _members[_count] = {.prefix = prefixOf(name),
                          .name = name.data(),
                          .value = value.data(),
                          .other = kind == Kind::other ? &*other++ : nullptr,
                          .nameSize = name.size(),
                          .valueSize = value.size(),
                          .kind = kind};
      _room += name.size() + value.size() + longestJSONNumber + roomForMarks;
    }
    return true;
  }

  /// By insertion: they are few.
  bool sort() {
    for (std::size_t i = 0; i < _count; ++i) {
      const Member* const member = &_members[i];
      std::size_t place = i;
      for (; place > 0 && member->isBefore(*_sorted[place - 1]); --place)
        _sorted[place] = _sorted[place - 1];
      if (place > 0 && member->hasNameOf(*_sorted[place - 1])) return false;
      _sorted[place] = member;
    }
    return true;
  }

  bool write(std::string& out, int enclosingContainers) const {
    Pen pen(out, _room);
    pen.put('{');
    for (std::size_t i = 0; i < _count; ++i) {
      if (i > 0) pen.put(',');
      if (!pen.putIfPlain(_sorted[i]->nameText())) return false;
      pen.put(':');
      if (!writeValue(pen, *_sorted[i], enclosingContainers + 1)) return false;
    }
    pen.put('}');
    return true;
  }

  static bool writeValue(Pen& pen, const Member& member, int enclosingContainers) {
    switch (member.kind) {
      case Kind::text:
        return pen.putIfPlain(member.packedValue());
      case Kind::integer:
        return pen.putNumber(PackedMembers::numberIn<std::int64_t>(member.packedValue()));
      case Kind::real:
        return pen.putNumber(PackedMembers::numberIn<double>(member.packedValue()));
      case Kind::no:
        return pen.put("false"), true;
      case Kind::yes:
        return pen.put("true"), true;
      case Kind::other:
        return pen.putBy([&](std::string& out) {
          return !appendJSON(out, member.other->toJSONValue(), enclosingContainers);
        });
    }
    return false;
  }

  const KiteData& _data;
  std::size_t _count = 0;
  std::size_t _room = roomForMarks;
  std::array<Member, places> _members;
  std::array<const Member*, places> _sorted;
};

std::optional<EncodingError> appendJSON(std::string& out, const KiteData& data,
                                        int enclosingContainers) {
  const std::size_t begin = out.size();
  if (MemberText(data).append(out, enclosingContainers)) return std::nullopt;
  out.resize(begin);
  return appendJSON(out, toJSONObject(data), enclosingContainers);
}

}  // namespace kite
