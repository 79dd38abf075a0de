#include "LegacyArchive/PropertyList.h"

#include <Kite/Platform/LegacyArchive.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace kite::test {
namespace {

using Array = DynamicValue::Array;
using Dictionary = DynamicValue::Dictionary;
using LegacyArchive::propertyListDictionary;
using PropertyList::read;

std::string bigEndian(std::uint64_t number, std::size_t size) {
  std::string bytes;
  while (size-- > 0) bytes += static_cast<char>(number >> (8 * size) & 0xFF);
  return bytes;
}

/// A binary property list of these objects, the first of which is the root; references have one
/// byte.
struct Binary {
  std::vector<std::string> objects;
  std::size_t referenceSize = 1;

  std::string document() const {
    std::string bytes = "bplist00", table;
    for (const auto& object : objects) {
      table += bigEndian(bytes.size(), 4);
      bytes += object;
    }
    const auto tableStart = bytes.size();
    return bytes + table + std::string(6, '\0') + bigEndian(4, 1) + bigEndian(referenceSize, 1) +
           bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(tableStart, 8);
  }
};

std::optional<DynamicValue> readObject(std::string object) {
  return read(Binary{{std::move(object)}}.document());
}

std::optional<DynamicValue> readXML(const std::string& value) {
  return read(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//X//EN\" "
      "\"http://example.com/list.dtd\">\n<plist version=\"1.0\">\n" +
      value + "\n</plist>\n");
}

TEST(BinaryPropertyList, readsIntegersOfEverySize) {
  EXPECT_EQ(readObject("\x10\xFF"), 255);
  EXPECT_EQ(readObject("\x11\xFF\xFE"), 65534);
  EXPECT_EQ(readObject("\x12\xFF\xFF\xFF\xFF"), std::int64_t{4294967295});
  EXPECT_EQ(readObject("\x13" + bigEndian(static_cast<std::uint64_t>(-2), 8)), -2);
  EXPECT_EQ(readObject("\x14" + bigEndian(0, 8) + std::string(8, '\xFF')),
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(readObject("\x14" + std::string(16, '\xFF')), std::nullopt);
}

TEST(BinaryPropertyList, readsRealsOfBothSizes) {
  EXPECT_EQ(readObject("\x22\x3F\xC0" + std::string(2, '\0')), 1.5);
  EXPECT_EQ(readObject("\x23\x3F\xF8" + std::string(6, '\0')), 1.5);
  EXPECT_EQ(readObject("\x21\x3F\xF8"), std::nullopt);
}

TEST(BinaryPropertyList, readsConstants) {
  EXPECT_EQ(readObject(std::string("\x00", 1)), DynamicValue::NullObject{});
  EXPECT_EQ(readObject("\x08"), false);
  EXPECT_EQ(readObject("\x09"), true);
  EXPECT_EQ(readObject("\x0F"), std::nullopt);
}

TEST(BinaryPropertyList, readsTextInEveryEncoding) {
  EXPECT_EQ(readObject("\x53"
                       "abc"),
            "abc");
  EXPECT_EQ(readObject(std::string("\x62\x00\xE4\x20\xAC", 5)), "\xC3\xA4\xE2\x82\xAC");
  EXPECT_EQ(readObject("\x62\xD8\x3D\xDE\x42"), "\xF0\x9F\x99\x82");
  EXPECT_EQ(readObject("\x72\xC3\xA4"), "\xC3\xA4");
}

TEST(BinaryPropertyList, replacesLoneSurrogates) {
  EXPECT_EQ(readObject("\x61\xD8\x3D"), "\xEF\xBF\xBD");
  EXPECT_EQ(readObject(std::string("\x62\xDE\x42\x00\x61", 5)),
            "\xEF\xBF\xBD"
            "a");
}

TEST(BinaryPropertyList, readsLongCounts) {
  const std::string text(300, 'x');
  EXPECT_EQ(readObject("\x5F\x11\x01\x2C" + text), DynamicValue(text));
  EXPECT_EQ(readObject("\x5F\x21\x01\x2C" + text), std::nullopt);
}

TEST(BinaryPropertyList, refusesCountsBeyondTheDocument) {
  const auto billion = "\x12\x3B\x9A\xCA" + std::string(1, '\0');
  for (const auto* kind : {"\x4F", "\x5F", "\x6F", "\x7F", "\xAF", "\xDF"})
    EXPECT_EQ(readObject(kind + billion), std::nullopt);
  EXPECT_EQ(readObject("\xAF\x13" + std::string(8, '\xFF')), std::nullopt);
  EXPECT_EQ(readObject("\xAF\x14" + std::string(16, '\xFF')), std::nullopt);
}

TEST(BinaryPropertyList, readsReferencesToArchivedObjects) {
  EXPECT_EQ(readObject("\x81\x01\x02"), (Dictionary{{"CF$UID", 258}}));
}

TEST(BinaryPropertyList, readsContainers) {
  const Binary list{{"\xA2\x01\x02", "\xD1\x03\x02", "\x10\x07", "\x51k"}};
  EXPECT_EQ(read(list.document()), (Array{Dictionary{{"k", 7}}, 7}));
}

TEST(BinaryPropertyList, refusesReferencesOutOfRange) {
  EXPECT_EQ(read(Binary{{"\xA1\x01"}}.document()), std::nullopt);
  EXPECT_EQ(read(Binary{{"\xA1\xFF", "\x09"}}.document()), std::nullopt);
}

TEST(BinaryPropertyList, refusesContainersThatHoldThemselves) {
  EXPECT_EQ(read(Binary{{std::string("\xA1\x00", 2)}}.document()), std::nullopt);
  EXPECT_EQ(read(Binary{{std::string("\xA2\x00\x00", 3)}}.document()), std::nullopt);
  EXPECT_EQ(read(Binary{{"\xD1\x01\x02", "\x51k", std::string("\xA1\x00", 2)}}.document()),
            std::nullopt);
}

TEST(BinaryPropertyList, refusesToExpandSharedObjectsWithoutBounds) {
  Binary list;
  for (char level = 1; level <= 40; ++level) list.objects.push_back({'\xA2', level, level});
  list.objects.push_back("\x09");
  EXPECT_EQ(read(list.document()), std::nullopt);
}

TEST(BinaryPropertyList, refusesToCopyALongTextWithoutBounds) {
  const std::size_t places = 2000;
  const Binary list{{"\xAF\x11" + bigEndian(places, 2) + std::string(places, '\1'),
                     "\x5F\x12" + bigEndian(200'000, 4) + std::string(200'000, 'x')}};
  EXPECT_EQ(read(list.document()), std::nullopt);
}

TEST(BinaryPropertyList, readsNestingUpToTheLimitOnly) {
  const auto nested = [](std::size_t containers) {
    Binary list{{}, 2};
    for (std::size_t level = 1; level < containers; ++level)
      list.objects.push_back(std::string("\xA1").append(bigEndian(level, 2)));
    list.objects.push_back("\xA0");
    return read(list.document()).has_value();
  };
  EXPECT_TRUE(nested(512));
  EXPECT_FALSE(nested(513));
  EXPECT_FALSE(nested(60'000));
}

TEST(BinaryPropertyList, refusesTrailersThatContradictTheDocument) {
  const auto sound = Binary{{"\x09"}}.document();
  ASSERT_EQ(read(sound), true);
  const auto trailer = sound.size() - 32;
  const auto with = [&](std::size_t place, const std::string& bytes) {
    return read(std::string(sound).replace(trailer + place, bytes.size(), bytes));
  };
  EXPECT_EQ(with(6, std::string(1, '\0')), std::nullopt) << "offsets without bytes";
  EXPECT_EQ(with(6, "\x09"), std::nullopt) << "offsets of nine bytes";
  EXPECT_EQ(with(7, std::string(1, '\0')), std::nullopt) << "references without bytes";
  EXPECT_EQ(with(7, "\x09"), std::nullopt) << "references of nine bytes";
  EXPECT_EQ(with(8, bigEndian(2, 8)), std::nullopt) << "more objects than offsets";
  EXPECT_EQ(with(8, std::string(8, '\xFF')), std::nullopt) << "a count that overflows";
  EXPECT_EQ(with(16, bigEndian(1, 8)), std::nullopt) << "a root that is not there";
  EXPECT_EQ(with(24, bigEndian(7, 8)), std::nullopt) << "a table in the header";
  EXPECT_EQ(with(24, std::string(8, '\xFF')), std::nullopt) << "a table behind the end";
}

TEST(BinaryPropertyList, refusesOffsetsOutsideTheObjects) {
  for (const auto offset : {0u, 7u, 9u, 500u}) {
    auto document = Binary{{"\x09"}}.document();
    document.replace(9, 4, bigEndian(offset, 4));
    EXPECT_EQ(read(document), std::nullopt) << offset;
  }
}

TEST(XMLPropertyList, readsEveryKindOfValue) {
  EXPECT_EQ(readXML("<string>a</string>"), "a");
  EXPECT_EQ(readXML("<string/>"), "");
  EXPECT_EQ(readXML("<integer> -12 </integer>"), -12);
  EXPECT_EQ(readXML("<integer>0xFF</integer>"), 255);
  EXPECT_EQ(readXML("<integer>18446744073709551615</integer>"),
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(readXML("<real>1.5e3</real>"), 1500.0);
  EXPECT_EQ(readXML("<real>-inf</real>"), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(readXML("<true/>"), true);
  EXPECT_EQ(readXML("<false></false>"), false);
  EXPECT_EQ(readXML("<date>2001-01-01T00:00:10Z</date>"), Date::sinceReferenceDate(10));
  EXPECT_EQ(readXML("<data>\n\tAAH/\n\tYQ==\n</data>"), Data{std::string("\0\1\xFF"
                                                                         "a",
                                                                         4)});
  EXPECT_EQ(readXML("<array><true/><array/></array>"), (Array{true, Array{}}));
  EXPECT_EQ(readXML("<dict><key>k</key><dict/></dict>"), (Dictionary{{"k", Dictionary{}}}));
}

TEST(XMLPropertyList, readsEscapedText) {
  EXPECT_EQ(readXML("<string>&lt;&amp;&gt;&quot;&apos;&#228;&#x20AC;</string>"),
            "<&>\"'\xC3\xA4\xE2\x82\xAC");
  EXPECT_EQ(readXML("<string>a<![CDATA[<b>&amp;]]>c</string>"), "a<b>&amp;c");
  EXPECT_EQ(readXML("<string>a<!-- b -->c</string>"), "ac");
  EXPECT_EQ(readXML("<string>&unknown;</string>"), std::nullopt);
  EXPECT_EQ(readXML("<string>&amp</string>"), std::nullopt);
}

TEST(XMLPropertyList, passesOverComments) {
  EXPECT_EQ(readXML("<!-- <true/> --><array><!-- x --><true/></array>"), (Array{true}));
}

TEST(XMLPropertyList, refusesMalformedDocuments) {
  EXPECT_EQ(readXML(""), std::nullopt);
  EXPECT_EQ(readXML("<true/><true/>"), std::nullopt);
  EXPECT_EQ(readXML("<array><true/></dict>"), std::nullopt);
  EXPECT_EQ(readXML("<dict><string>k</string><true/></dict>"), std::nullopt);
  EXPECT_EQ(readXML("<dict><key>k</key></dict>"), std::nullopt);
  EXPECT_EQ(readXML("<string>a</integer>"), std::nullopt);
  EXPECT_EQ(readXML("<array>text</array>"), std::nullopt);
  EXPECT_EQ(readXML("<unknown/>"), std::nullopt);
  EXPECT_EQ(readXML("</array>"), std::nullopt);
  EXPECT_EQ(read("<array/>"), std::nullopt);
}

TEST(XMLPropertyList, refusesMalformedValues) {
  for (const auto* value :
       {"<integer/>", "<integer>1.5</integer>", "<integer>99999999999999999999</integer>",
        "<real>one</real>", "<real/>", "<date>yesterday</date>",
        "<date>2001-02-30T00:00:00Z</date>", "<date>2001-01-01T24:00:00Z</date>", "<data>?</data>"})
    EXPECT_EQ(readXML(value), std::nullopt) << value;
}

TEST(XMLPropertyList, readsNestingUpToTheLimitOnly) {
  const auto nested = [](std::size_t containers) {
    std::string value;
    for (std::size_t level = 0; level < containers; ++level) value += "<array>";
    for (std::size_t level = 0; level < containers; ++level) value += "</array>";
    return readXML(value).has_value();
  };
  EXPECT_TRUE(nested(512));
  EXPECT_FALSE(nested(513));
  EXPECT_FALSE(nested(200'000));
}

TEST(PropertyListDictionary, readsBothFormsOfADictionary) {
  const auto text = "<plist><dict><key>k</key><integer>1</integer></dict></plist>";
  EXPECT_EQ(propertyListDictionary(text), (Dictionary{{"k", 1}}));
  const Binary binary{{"\xD1\x01\x02", "\x51k", "\x10\x01"}};
  EXPECT_EQ(propertyListDictionary(binary.document()), (Dictionary{{"k", 1}}));
}

TEST(PropertyListDictionary, refusesRootsOfOtherKinds) {
  EXPECT_EQ(propertyListDictionary("<plist><array/></plist>"), std::nullopt);
  EXPECT_EQ(propertyListDictionary("{}"), std::nullopt);
}

}  // namespace
}  // namespace kite::test
