#include <Kite/Platform/LegacyArchive.h>

#include "Support/KeyedArchive.h"
#include "Support/KeyedArchiveWriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace kite::test {
namespace {

using Dictionary = DynamicValue::Dictionary;
using LegacyArchive::unarchiveDictionary;

class KeyedArchiveTests : public testing::Test {
 protected:
  /// What a dictionary with this object under "k" reads as, or "absent".
  DynamicValue readBack(KeyedArchiveWriter::Reference object) {
    const auto root = archive.dictionary({{archive.text("k"), object}});
    const auto fromBinary = unarchiveDictionary(archive.binary(root));
    const auto fromXML = unarchiveDictionary(archive.xml(root));
    EXPECT_EQ(fromBinary, fromXML);
    return fromBinary && fromBinary->size() == 1 ? fromBinary->front().value : "absent";
  }

  KeyedArchiveWriter archive;
};

TEST_F(KeyedArchiveTests, readsAnEmptyDictionary) {
  EXPECT_EQ(unarchiveDictionary(archive.binary(archive.dictionary({}))), Dictionary{});
}

TEST_F(KeyedArchiveTests, keepsTheOrderOfEntries) {
  const auto root = archive.dictionary(
      {{archive.text("z"), archive.integer(1)}, {archive.text("a"), archive.integer(2)}});
  EXPECT_EQ(unarchiveDictionary(archive.binary(root)), (Dictionary{{"z", 1}, {"a", 2}}));
}

TEST_F(KeyedArchiveTests, readsPlainValues) {
  EXPECT_EQ(readBack(archive.text("text")), "text");
  EXPECT_EQ(readBack(archive.text("na\xC3\xAFve \xF0\x9F\x99\x82")),
            "na\xC3\xAFve \xF0\x9F\x99\x82");
  EXPECT_EQ(readBack(archive.integer(70'000)), 70'000);
  EXPECT_EQ(readBack(archive.integer(static_cast<std::uint64_t>(-3))), -3);
  EXPECT_EQ(readBack(archive.real(1.5)), 1.5);
  EXPECT_EQ(readBack(archive.data("bytes")), Data{"bytes"});
}

TEST_F(KeyedArchiveTests, keepsBooleansApartFromNumbers) {
  EXPECT_EQ(readBack(archive.boolean(true)), true);
  EXPECT_EQ(readBack(archive.boolean(false)), false);
  EXPECT_EQ(readBack(archive.integer(1)), 1);
}

TEST_F(KeyedArchiveTests, readsTheNullReferenceAndTheNullObjectAlike) {
  EXPECT_EQ(readBack(0), DynamicValue::NullObject{});
  EXPECT_EQ(readBack(archive.instance("NSNull", {})), DynamicValue::NullObject{});
}

TEST_F(KeyedArchiveTests, readsInstancesOfValueClasses) {
  EXPECT_EQ(readBack(archive.date(12.5)), Date::sinceReferenceDate(12.5));
  EXPECT_EQ(
      readBack(archive.instance("NSMutableString", {{"NS.string", plist_new_string("changing")}})),
      "changing");
  EXPECT_EQ(
      readBack(archive.instance("NSMutableData", {{"NS.data", plist_new_data("changing", 8)}})),
      Data{"changing"});
}

/// The 16 bytes of a mantissa that begin with these.
std::string mantissa(std::string beginning) {
  beginning.resize(16);
  return beginning;
}

TEST_F(KeyedArchiveTests, readsADecimalNumberAsTheIntegerThatItIs) {
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x39\x30"), 1, 0)), 12345);
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x39\x30"), 1, 3)), 12'345'000);
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x64"), 1, -2)), 1);
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x07"), 1, 0, true)), -7);
  EXPECT_EQ(readBack(archive.decimal(mantissa(""), 0, 5)), 0);
}

TEST_F(KeyedArchiveTests, readsADecimalNumberAsTheNearestRealElse) {
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x39\x30"), 1, -2)), 123.45);
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x01"), 1, -1, true)), -0.1);
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x01"), 1, 127)), 1e127);
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x01"), 1, -128)), 1e-128);
  EXPECT_EQ(readBack(archive.decimal(std::string(16, '\xFF'), 8, 0)), 0x1p128);
}

TEST_F(KeyedArchiveTests, readsTheLargestIntegersOfDecimalNumbersExactly) {
  const std::string largest = "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F";
  const std::string next = std::string(7, '\0') + "\x80";
  EXPECT_EQ(readBack(archive.decimal(mantissa(largest), 4, 0)),
            std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(readBack(archive.decimal(mantissa(next), 4, 0, true)),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(readBack(archive.decimal(mantissa(next), 4, 0)), 0x1p63);
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x01"), 1, 18)),
            std::int64_t{1'000'000'000'000'000'000});
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x01"), 1, 19)), 1e19);
}

TEST_F(KeyedArchiveTests, readsTheMantissaOfADecimalNumberInItsByteOrder) {
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x30\x39"), 1, 0, false, 2)), 12345);
  const std::string twoPairs("\x00\x02\x00\x01", 4);
  EXPECT_EQ(readBack(archive.decimal(mantissa(twoPairs), 2, 0, false, 2)), 65538);
}

TEST_F(KeyedArchiveTests, countsOnlyTheLengthOfADecimalNumbersMantissa) {
  EXPECT_EQ(readBack(archive.decimal(mantissa("\x02\x01\x03\x01"), 1, 0)), 0x0102);
}

TEST_F(KeyedArchiveTests, readsADecimalNumberOfEitherClass) {
  EXPECT_EQ(
      readBack(archive.decimal(mantissa("\x07"), 1, 0, false, 1, "NSDecimalNumberPlaceholder")), 7);
}

TEST_F(KeyedArchiveTests, readsTheDecimalNumberThatIsNoneAsANaN) {
  const auto root =
      archive.dictionary({{archive.text("k"), archive.decimal(mantissa(""), 0, 0, true)}});
  const auto read = unarchiveDictionary(archive.binary(root));
  ASSERT_TRUE(read);
  const auto* real = read->front().value.real();
  ASSERT_NE(real, nullptr);
  EXPECT_TRUE(std::isnan(*real));
}

TEST_F(KeyedArchiveTests, refusesADecimalNumberThatIsMalformed) {
  const auto sound = mantissa("\x07");
  const auto refuses = [this](KeyedArchiveWriter::Reference object) {
    return readBack(object) == "absent";
  };
  EXPECT_TRUE(refuses(archive.decimal(sound.substr(1), 1, 0)));
  EXPECT_TRUE(refuses(archive.decimal(sound + "x", 1, 0)));
  EXPECT_TRUE(refuses(archive.decimal(sound, 9, 0)));
  EXPECT_TRUE(refuses(archive.decimal(sound, -1, 0)));
  EXPECT_TRUE(refuses(archive.decimal(sound, 1, 128)));
  EXPECT_TRUE(refuses(archive.decimal(sound, 1, -129)));
  EXPECT_TRUE(refuses(archive.decimal(sound, 1, 0, false, 0)));
  EXPECT_TRUE(refuses(archive.decimal(sound, 1, 0, false, 3)));
  EXPECT_TRUE(refuses(archive.instance("NSDecimalNumber", {})));
  EXPECT_TRUE(refuses(
      archive.instance("NSDecimalNumber", {{"NS.mantissa", plist_new_data(sound.data(), 16)},
                                           {"NS.mantissa.bo", KeyedArchiveWriter::integerNode(1)},
                                           {"NS.length", KeyedArchiveWriter::integerNode(1)},
                                           {"NS.exponent", KeyedArchiveWriter::integerNode(0)},
                                           {"NS.negative", plist_new_string("no")}})));
}

TEST_F(KeyedArchiveTests, readsNestedCollections) {
  const auto inner = archive.array({archive.integer(1), archive.text("two")}, "NSMutableArray");
  const auto outer = archive.dictionary({{archive.text("list"), inner}}, "NSMutableDictionary");
  EXPECT_EQ(readBack(outer), (Dictionary{{"list", DynamicValue::Array{1, "two"}}}));
}

TEST_F(KeyedArchiveTests, readsSharedObjectsInEveryPlace) {
  const auto shared = archive.text("shared");
  EXPECT_EQ(readBack(archive.array({shared, shared})), (DynamicValue::Array{"shared", "shared"}));
}

TEST_F(KeyedArchiveTests, keepsKeysThatAreNoStrings) {
  const auto root = archive.dictionary({{archive.integer(5), archive.text("five")}});
  EXPECT_EQ(unarchiveDictionary(archive.binary(root)), (Dictionary{{5, "five"}}));
}

TEST_F(KeyedArchiveTests, remembersObjectsOfOtherClassesByName) {
  EXPECT_EQ(readBack(archive.instance("NSUUID", {{"NS.uuidbytes", plist_new_data("0", 1)}})),
            DynamicValue::Opaque{"NSUUID"});
  EXPECT_EQ(readBack(archive.instance("NSURL", {})), DynamicValue::Opaque{"NSURL"});
}

TEST_F(KeyedArchiveTests, readsXMLWrittenByHand) {
  EXPECT_EQ(unarchiveDictionary(keyedArchive({{"Last-App-Version", "<string>1.0</string>"},
                                              {"Install-Timestamp", "<real>1500000000.5</real>"},
                                              {"Installed-Before-Kite", "<true/>"}})),
            (Dictionary{{"Last-App-Version", "1.0"},
                        {"Install-Timestamp", 1500000000.5},
                        {"Installed-Before-Kite", true}}));
}

TEST_F(KeyedArchiveTests, refusesARootThatIsNoDictionary) {
  EXPECT_EQ(unarchiveDictionary(archive.binary(archive.array({}))), std::nullopt);
  EXPECT_EQ(unarchiveDictionary(archive.binary(archive.text("k"))), std::nullopt);
  EXPECT_EQ(unarchiveDictionary(archive.binary(0)), std::nullopt);
}

TEST_F(KeyedArchiveTests, refusesAPropertyListThatIsNoArchive) {
  const Plist list(plist_new_dict());
  plist_dict_set_item(list.get(), "Last-App-Version", plist_new_string("1.0"));
  EXPECT_EQ(unarchiveDictionary(binaryDocument(list.get())), std::nullopt);
  EXPECT_EQ(unarchiveDictionary(""), std::nullopt);
  EXPECT_EQ(unarchiveDictionary("not an archive"), std::nullopt);
}

TEST_F(KeyedArchiveTests, refusesReferencesToObjectsThatAreNotThere) {
  const auto key = archive.text("k");
  EXPECT_EQ(unarchiveDictionary(archive.binary(archive.dictionary({{key, 999}}))), std::nullopt);
  EXPECT_EQ(unarchiveDictionary(archive.binary(999)), std::nullopt);
}

// Of several sizes: what lies behind the objects is no memory of theirs for some of them only.
TEST_F(KeyedArchiveTests, refusesAReferenceToThePlaceBehindTheLastObject) {
  for (int size = 2; size <= 33; ++size) {
    const auto last = archive.text("k");
    EXPECT_EQ(unarchiveDictionary(archive.binary(last + 1)), std::nullopt) << size;
    EXPECT_EQ(unarchiveDictionary(archive.binary(last)), std::nullopt) << size;
  }
}

TEST_F(KeyedArchiveTests, refusesADictionaryWithMoreKeysThanValues) {
  const auto key = archive.text("k");
  const auto root =
      archive.instance("NSDictionary", {{"NS.keys", KeyedArchiveWriter::references({key, key})},
                                        {"NS.objects", KeyedArchiveWriter::references({key})}});
  EXPECT_EQ(unarchiveDictionary(archive.binary(root)), std::nullopt);
}

TEST_F(KeyedArchiveTests, refusesInstancesWithContentsOfAnotherKind) {
  const auto key = archive.text("k");
  const auto reads = [&](KeyedArchiveWriter::Reference object) {
    return unarchiveDictionary(archive.binary(archive.dictionary({{key, object}}))).has_value();
  };
  EXPECT_FALSE(reads(archive.instance("NSArray", {{"NS.objects", plist_new_string("no")}})));
  EXPECT_FALSE(reads(archive.instance("NSArray", {})));
  EXPECT_FALSE(reads(archive.instance("NSDate", {{"NS.time", plist_new_string("no")}})));
  EXPECT_FALSE(reads(archive.instance("NSString", {{"NS.string", plist_new_uint(1)}})));
  EXPECT_FALSE(reads(archive.instance("NSData", {})));
  EXPECT_TRUE(reads(key));
}

TEST_F(KeyedArchiveTests, refusesAnObjectThatContainsItself) {
  // The array is the third object: null, then its class, then itself.
  const auto cycle = archive.array({2});
  ASSERT_EQ(cycle, 2u);
  const auto root = archive.dictionary({{archive.text("k"), cycle}});
  EXPECT_EQ(unarchiveDictionary(archive.binary(root)), std::nullopt);
}

TEST_F(KeyedArchiveTests, refusesACycleThatBranches) {
  const auto cycle = archive.array({2, 2, 2, 2});
  const auto root = archive.dictionary({{archive.text("k"), cycle}});
  EXPECT_EQ(unarchiveDictionary(archive.binary(root)), std::nullopt);
}

TEST_F(KeyedArchiveTests, refusesToExpandSharedObjectsWithoutBounds) {
  auto bomb = archive.text("boom");
  for (int level = 0; level < 40; ++level) bomb = archive.array({bomb, bomb});
  const auto root = archive.dictionary({{archive.text("k"), bomb}});
  EXPECT_EQ(unarchiveDictionary(archive.binary(root)), std::nullopt);
}

TEST_F(KeyedArchiveTests, readsNestingUpToTheLimitOnly) {
  const auto nested = [](int depth) {
    KeyedArchiveWriter writer;
    auto object = writer.text("deep");
    for (int level = 0; level < depth; ++level) object = writer.array({object});
    return unarchiveDictionary(writer.binary(writer.dictionary({{writer.text("k"), object}})));
  };
  EXPECT_TRUE(nested(510).has_value());
  EXPECT_FALSE(nested(511).has_value());
}

TEST_F(KeyedArchiveTests, anArchiveCutOffAnywhereReadsAsNothing) {
  const auto root = archive.dictionary({{archive.text("k"), archive.array({archive.real(1)})}});
  for (const auto& whole : {archive.binary(root), archive.xml(root)}) {
    ASSERT_TRUE(unarchiveDictionary(whole).has_value());
    const auto end = whole.find_last_not_of('\n') + 1;
    for (std::size_t size = 0; size < end; ++size)
      EXPECT_EQ(unarchiveDictionary(whole.substr(0, size)), std::nullopt) << size;
  }
}

TEST_F(KeyedArchiveTests, survivesAnyChangedByte) {
  const auto root = archive.dictionary({{archive.text("key"), archive.data("data")},
                                        {archive.text("list"), archive.array({archive.real(1)})}});
  const auto whole = archive.binary(root);
  int readable = 0;
  for (std::size_t place = 0; place < whole.size(); ++place)
    for (const int bit : {0, 3, 7}) {
      auto changed = whole;
      changed[place] = static_cast<char>(changed[place] ^ (1 << bit));
      if (unarchiveDictionary(changed)) ++readable;
    }
  EXPECT_LT(readable, static_cast<int>(3 * whole.size()));
}

}  // namespace
}  // namespace kite::test
