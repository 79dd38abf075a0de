#include <Kite/KiteEndpoints.h>

#include <gtest/gtest.h>

namespace kite::test {
namespace {

TEST(KiteEndpoints, areTheCollectionServicesOwnByDefault) {
  const auto& endpoints = KiteEndpoints::defaultEndpoints();
  EXPECT_EQ(endpoints.production.absoluteString(), "https://events.kite.example/v4/events");
  EXPECT_EQ(endpoints.staging.absoluteString(), "https://events-staging.kite.example/v4/events");
}

TEST(KiteEndpoints, areMadeOnce) {
  EXPECT_EQ(&KiteEndpoints::defaultEndpoints(), &KiteEndpoints::defaultEndpoints());
}

}  // namespace
}  // namespace kite::test
