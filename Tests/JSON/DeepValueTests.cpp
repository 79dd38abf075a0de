#include <Kite/KiteValue.h>

#include "JSON/DynamicConversion.h"
#include "JSON/JSONDecoder.h"
#include "JSON/JSONWriter.h"
#include "Support/CatchFatalErrors.h"
#include "Support/SmallStack.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace kite::test {
namespace {

constexpr int deep = 100'000;

JSONValue nestedArrays(int depth, JSONValue innermost) {
  for (int i = 0; i < depth; ++i) innermost = JSONValue::Array{std::move(innermost)};
  return innermost;
}

JSONValue nestedObjects(int depth, JSONValue innermost) {
  for (int i = 0; i < depth; ++i) innermost = JSONValue::Object{{"k", std::move(innermost)}};
  return innermost;
}

DynamicValue nestedDynamic(int depth, DynamicValue innermost) {
  for (int i = 0; i < depth; ++i) {
    innermost = i % 2 == 0 ? DynamicValue(DynamicValue::Array{std::move(innermost)})
                           : DynamicValue(DynamicValue::Dictionary{{"k", std::move(innermost)}});
  }
  return innermost;
}

TEST(DeepValues, areDestroyedOnASmallStack) {
  onSmallStack([] {
    EXPECT_NE(nestedArrays(deep, 1).array(), nullptr);
    EXPECT_NE(nestedObjects(deep, 1).object(), nullptr);
    EXPECT_NE(nestedDynamic(deep, 1).dictionary(), nullptr);
  });
}

TEST(DeepValues, areCopiedAndComparedOnASmallStack) {
  onSmallStack([] {
    const JSONValue value = nestedObjects(deep, 1);
    const JSONValue copy = value;
    EXPECT_TRUE(copy == value);
    EXPECT_TRUE(value == nestedObjects(deep, 1));
    EXPECT_FALSE(value == nestedObjects(deep, 2));
    EXPECT_FALSE(nestedArrays(deep, 1) == nestedArrays(deep + 1, 1));
  });
}

TEST(DeepValues, areComparedAsDynamicValuesOnASmallStack) {
  onSmallStack([] {
    EXPECT_TRUE(nestedDynamic(deep, 1) == nestedDynamic(deep, 1));
    EXPECT_FALSE(nestedDynamic(deep, 1) == nestedDynamic(deep, true));
  });
}

TEST(DeepValues, becomeHostValuesAndJSONAgainOnASmallStack) {
  onSmallStack([] {
    const JSONValue::Object members{{"a", nestedObjects(deep, Date{1.5})}};
    const KiteData data = toKiteValue(members);
    const auto inner = data.at("a")->as<KiteData>();
    ASSERT_TRUE(inner);
    EXPECT_TRUE(inner->at("k")->toJSONValue() == nestedObjects(deep - 1, 1.5));
    EXPECT_TRUE(*toJSONObject(data).at("a") == nestedObjects(deep, 1.5));
  });
}

TEST(DeepValues, areReachedLevelByLevelInReasonableTime) {
  KiteValue value = *toKiteValue(nestedObjects(deep, Date{1.5}));
  while (auto data = value.as<KiteData>()) value = *data->at("k");
  EXPECT_EQ(value.as<Date>(), Date{1.5});
}

TEST(DeepValues, areConvertedFromDynamicValuesOnASmallStack) {
  onSmallStack([] {
    const DynamicValue object = nestedDynamic(deep, 3.0);
    const auto json = toJSONValue(&object);
    ASSERT_TRUE(json);
    EXPECT_TRUE(*json == migratedJSONValue(object));
    JSONValue expected(3);
    for (int i = 0; i < deep; ++i) {
      expected = i % 2 == 0 ? JSONValue(JSONValue::Array{std::move(expected)})
                            : JSONValue(JSONValue::Object{{"k", std::move(expected)}});
    }
    EXPECT_TRUE(*json == expected);
  });
}

TEST(DeepValues, stopAMigrationOnASmallStack) {
  onSmallStack([] {
    EXPECT_FATAL(migratedJSONValue(nestedDynamic(deep, Date{1})), "User Info Migration failed");
  });
}

TEST(DeepValues, areRefusedByTheEncoderOnASmallStack) {
  onSmallStack([] {
    std::string out;
    const auto error = appendJSON(out, nestedObjects(deep, 1));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->codingPath.size(), 512U);
  });
}

TEST(DeepValues, areEncodedAndDecodedToTheLimitOnASmallStack) {
  onSmallStack([] {
    const JSONValue value = nestedObjects(maximumEncodedDepth, 1);
    std::string out;
    ASSERT_FALSE(appendJSON(out, value));
    const auto decoded = decodeJSON(out);
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(*decoded == value);
  });
}

TEST(DeepValues, areDestroyedOnceByThreadsThatShareThem) {
  for (int round = 0; round < 10; ++round) {
    JSONValue value(JSONValue::Array{});
    std::vector<JSONValue> owners;
    for (int i = 0; i < 1000; ++i) {
      value = JSONValue::Array{value, value};
      owners.push_back(value);
    }
    value = Null{};
    std::vector<std::thread> threads;
    for (std::size_t part = 0; part < 4; ++part) {
      std::vector<JSONValue> share;
      for (std::size_t i = part; i < owners.size(); i += 4) share.push_back(std::move(owners[i]));
      threads.emplace_back([share = std::move(share)]() mutable { share.clear(); });
    }
    for (auto& thread : threads) thread.join();
  }
}

}  // namespace
}  // namespace kite::test
