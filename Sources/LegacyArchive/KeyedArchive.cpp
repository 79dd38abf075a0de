#include <Kite/Platform/LegacyArchive.h>

#include "LegacyArchive/Allowance.h"
#include "LegacyArchive/DecimalNumber.h"
#include "LegacyArchive/PropertyList.h"

#include <string>
#include <utility>

namespace kite {

namespace {

using PropertyList::Allowance;
using PropertyList::DecimalNumber;

// The byte orders of a decimal number.
constexpr std::int64_t littleEndian = 1;
constexpr std::int64_t bigEndian = 2;

const DynamicValue* member(const DynamicValue& value, std::string_view key) {
  const auto* dictionary = value.dictionary();
  return dictionary ? valueFor(*dictionary, key) : nullptr;
}

/// The objects of a keyed archive, which refer to each other by number.
class KeyedArchive {
 public:
  KeyedArchive(const DynamicValue::Array& objects, std::size_t archiveSize)
      : _objects(objects), _allowance(archiveSize) {}

  std::optional<DynamicValue> object(const DynamicValue& reference, int depth) {
    const auto* content = target(reference);
    if (!content || depth == 0 || !_allowance.spend()) return std::nullopt;
    if (content == &_objects.front()) return DynamicValue::NullObject{};
    if (content->dictionary()) return instance(*content, depth);
    return !content->array() ? plain(content) : std::nullopt;
  }

 private:
  using Value = std::optional<DynamicValue>;

  /// Looking through a dictionary costs time in proportion to its size.
  const DynamicValue* find(const DynamicValue& content, std::string_view key) {
    const auto* dictionary = content.dictionary();
    return dictionary && _allowance.spend(dictionary->size()) ? valueFor(*dictionary, key)
                                                              : nullptr;
  }

  /// The object that a reference stands for, or null.
  const DynamicValue* target(const DynamicValue& reference) const {
    const auto* dictionary = reference.dictionary();
    if (!dictionary || dictionary->size() != 1) return nullptr;
    const auto* number = valueFor(*dictionary, PropertyList::referenceKey);
    const auto* index = number ? number->integer() : nullptr;
    if (!index || *index < 0 || static_cast<std::uint64_t>(*index) >= _objects.size())
      return nullptr;
    return &_objects[static_cast<std::size_t>(*index)];
  }

  Value instance(const DynamicValue& content, int depth) {
    const auto* name = className(content);
    if (!name) return std::nullopt;
    if (*name == "NSDictionary" || *name == "NSMutableDictionary")
      return dictionary(content, depth);
    if (*name == "NSArray" || *name == "NSMutableArray") return array(content, depth);
    if (*name == "NSString" || *name == "NSMutableString")
      return string(find(content, "NS.string"));
    if (*name == "NSData" || *name == "NSMutableData") return data(find(content, "NS.data"));
    if (*name == "NSDate") return date(find(content, "NS.time"));
    if (*name == "NSDecimalNumber" || *name == "NSDecimalNumberPlaceholder")
      return decimal(content);
    if (*name == "NSNull") return DynamicValue::NullObject{};
    return DynamicValue::Opaque{*name};
  }

  const std::string* className(const DynamicValue& content) {
    const auto* reference = find(content, "$class");
    const auto* description = reference ? target(*reference) : nullptr;
    const auto* name = description ? find(*description, "$classname") : nullptr;
    return name ? name->string() : nullptr;
  }

  Value dictionary(const DynamicValue& content, int depth) {
    const auto* keys = references(content, "NS.keys");
    const auto* values = references(content, "NS.objects");
    if (!keys || !values || keys->size() != values->size()) return std::nullopt;
    DynamicValue::Dictionary entries;
    for (std::size_t i = 0; i < keys->size(); ++i) {
      auto key = object((*keys)[i], depth - 1);
      auto value = key ? object((*values)[i], depth - 1) : std::nullopt;
      if (!value) return std::nullopt;
      entries.push_back({*std::move(key), *std::move(value)});
    }
    return DynamicValue(std::move(entries));
  }

  Value array(const DynamicValue& content, int depth) {
    const auto* values = references(content, "NS.objects");
    if (!values) return std::nullopt;
    DynamicValue::Array elements;
    for (const auto& reference : *values) {
      auto element = object(reference, depth - 1);
      if (!element) return std::nullopt;
      elements.push_back(*std::move(element));
    }
    return DynamicValue(std::move(elements));
  }
  const DynamicValue::Array* references(const DynamicValue& content, std::string_view key) {
    const auto* value = find(content, key);
    return value ? value->array() : nullptr;
  }

  // Contents stand in the object itself or, in archives of long ago, in one that it refers to.
  Value string(const DynamicValue* content) {
    const auto* value = direct(content);
    return value && value->string() ? plain(value) : std::nullopt;
  }
  Value data(const DynamicValue* content) {
    const auto* value = direct(content);
    return value && value->data() ? plain(value) : std::nullopt;
  }
  const DynamicValue* direct(const DynamicValue* content) const {
    const auto* referred = content ? target(*content) : nullptr;
    return referred ? referred : content;
  }
  static Value date(const DynamicValue* time) {
    if (time && time->real()) return Date::sinceReferenceDate(*time->real());
    if (time && time->integer())
      return Date::sinceReferenceDate(static_cast<double>(*time->integer()));
    return std::nullopt;
  }

  Value decimal(const DynamicValue& content) {
    const auto length = integer(content, "NS.length", 0, DecimalNumber::maximumLength);
    const auto exponent = integer(content, "NS.exponent", -128, 127);
    const auto byteOrder = integer(content, "NS.mantissa.bo", littleEndian, bigEndian);
    const auto* sign = find(content, "NS.negative");
    const auto* bytes = find(content, "NS.mantissa");
    DecimalNumber number;
    if (!length || !exponent || !byteOrder || !sign || !sign->boolean() || !bytes ||
        !bytes->data() || bytes->data()->bytes.size() != 2 * number.mantissa.size())
      return std::nullopt;
    number.length = static_cast<std::size_t>(*length);
    number.exponent = *exponent;
    number.isNegative = *sign->boolean();
    const std::size_t low = *byteOrder == littleEndian ? 0 : 1;
    for (std::size_t i = 0; i < number.mantissa.size(); ++i)
      number.mantissa[i] = twoBytes(bytes->data()->bytes, 2 * i + low, 2 * i + 1 - low);
    return number.value();
  }
  static std::uint16_t twoBytes(const std::string& bytes, std::size_t low, std::size_t high) {
    const auto byte = [&](std::size_t place) { return static_cast<unsigned char>(bytes[place]); };
    return static_cast<std::uint16_t>(byte(high) << 8U | byte(low));
  }
  std::optional<std::int64_t> integer(const DynamicValue& content, std::string_view key,
                                      std::int64_t least, std::int64_t largest) {
    const auto* value = find(content, key);
    const auto* number = value ? value->integer() : nullptr;
    return number && *number >= least && *number <= largest ? std::optional(*number) : std::nullopt;
  }

  Value plain(const DynamicValue* value) {
    const auto size = value->string() ? value->string()->size()
                      : value->data() ? value->data()->bytes.size()
                                      : 0;
    return _allowance.spend(size) ? Value(*value) : std::nullopt;
  }

  const DynamicValue::Array& _objects;
  Allowance _allowance;
};

}  // namespace

namespace LegacyArchive {

std::optional<DynamicValue::Dictionary> unarchiveDictionary(std::string_view archive) {
  const auto list = PropertyList::read(archive);
  const auto* objects = list ? member(*list, "$objects") : nullptr;
  const auto* top = list ? member(*list, "$top") : nullptr;
  const auto* root = top ? member(*top, "root") : nullptr;
  if (!root || !objects || !objects->array() || objects->array()->empty()) return std::nullopt;
  const auto value =
      KeyedArchive(*objects->array(), archive.size()).object(*root, PropertyList::maximumDepth);
  if (!value || !value->dictionary()) return std::nullopt;
  return *value->dictionary();
}

std::optional<DynamicValue::Dictionary> propertyListDictionary(std::string_view document) {
  const auto list = PropertyList::read(document);
  if (!list || !list->dictionary()) return std::nullopt;
  return *list->dictionary();
}

}  // namespace LegacyArchive

}  // namespace kite

/// Whoever links this library has the linker look for this name, and so gets these functions
/// instead of those of a library that was built without them.
extern "C" void kiteLegacyArchiveIsLinked() {}
