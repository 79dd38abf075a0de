#include "Linux/Machine/Machine.h"

#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <limits>
#include <optional>
#include <string>

namespace kite::Linux {
namespace {

Date utc(int year, unsigned month, unsigned day, int hour = 0) {
  using namespace std::chrono;
  const auto date = std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
  const auto time = sys_seconds(sys_days(date)) + hours(hour);
  return {static_cast<double>(time.time_since_epoch().count())};
}

constexpr int hour = 3600;

class TimeZoneName : public testing::Test {
 protected:
  std::string name(const std::optional<std::string>& TZ = std::nullopt) const {
    return timeZoneName(TZ, files);
  }

  test::TemporaryFolder folder;
  TimeZoneFiles files{.link = folder.path() / "localtime", .name = folder.path() / "timezone"};
};

TEST_F(TimeZoneName, isTheFirstThatIsGiven) {
  EXPECT_EQ(name(), "UTC");
  std::ofstream(files.name) << "Europe/Paris\n";
  EXPECT_EQ(name(), "Europe/Paris");
  std::filesystem::create_symlink("../usr/share/zoneinfo/Asia/Tokyo", files.link);
  EXPECT_EQ(name(), "Asia/Tokyo");
  EXPECT_EQ(name("Europe/Berlin"), "Europe/Berlin");
}

TEST_F(TimeZoneName, isThatOfTheFileWhenTheMachinesIsNoLink) {
  std::ofstream(files.link) << "TZif2";
  EXPECT_EQ(name(), "UTC");
  std::ofstream(files.name) << "Europe/Paris\n";
  EXPECT_EQ(name(), "Europe/Paris");
}

TEST_F(TimeZoneName, isReadFromEveryFormOfTheVariable) {
  std::filesystem::create_symlink("/usr/share/zoneinfo/Asia/Tokyo", files.link);
  EXPECT_EQ(name(""), "UTC") << "as the C library has it";
  EXPECT_EQ(name(":America/New_York"), "America/New_York");
  EXPECT_EQ(name("/usr/share/zoneinfo/America/New_York"), "America/New_York");
  EXPECT_EQ(name(":" + files.link.string()), "Asia/Tokyo");
  EXPECT_EQ(name("CET-1CEST"), "CET-1CEST") << "no zone of the database, but what counts";
}

class ProcessTimeZone : public testing::Test {
 protected:
  ~ProcessTimeZone() override {
    before ? ::setenv("TZ", before->c_str(), 1) : ::unsetenv("TZ");
    ::tzset();
  }

  static TimeZone zone(const char* name) {
    ::setenv("TZ", name, 1);
    ::tzset();
    return timeZone();
  }

  const std::optional<std::string> before =
      std::getenv("TZ") ? std::optional<std::string>(std::getenv("TZ")) : std::nullopt;
};

TEST_F(ProcessTimeZone, answersForTheDateThatIsAskedFor) {
  const auto berlin = zone("Europe/Berlin");
  EXPECT_EQ(berlin.identifier, "Europe/Berlin");
  EXPECT_EQ(berlin.secondsFromUTC(utc(2024, 1, 1)), hour);
  EXPECT_FALSE(berlin.isDaylightSavingTime(utc(2024, 1, 1)));
  EXPECT_EQ(berlin.secondsFromUTC(utc(2100, 7, 1)), 2 * hour);
  EXPECT_TRUE(berlin.isDaylightSavingTime(utc(2100, 7, 1)));
}

TEST_F(ProcessTimeZone, changesAtTheSecond) {
  const auto berlin = zone("Europe/Berlin");
  const Date change = utc(2024, 3, 31, 1);
  EXPECT_EQ(berlin.secondsFromUTC({change.secondsSince1970 - 0.5}), hour);
  EXPECT_EQ(berlin.secondsFromUTC(change), 2 * hour);
}

TEST_F(ProcessTimeZone, knowsUnusualOffsets) {
  EXPECT_EQ(zone("Asia/Kathmandu").secondsFromUTC(utc(2024, 1, 1)), 5 * hour + 2700);
  EXPECT_EQ(zone("America/New_York").secondsFromUTC(utc(2024, 7, 1)), -4 * hour);
  EXPECT_EQ(zone("Pacific/Auckland").secondsFromUTC(utc(2024, 1, 1)), 13 * hour);
}

TEST_F(ProcessTimeZone, answersForAnyNumberAsDate) {
  const auto tokyo = zone("Asia/Tokyo");
  for (const double seconds :
       {1e300, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()})
    EXPECT_EQ(tokyo.secondsFromUTC({seconds}), 9 * hour) << seconds;
  for (const double seconds : {-1e300, std::numeric_limits<double>::lowest()})
    EXPECT_EQ(tokyo.secondsFromUTC({seconds}), 9 * hour + 1139) << seconds << ": before zones";
}

TEST_F(ProcessTimeZone, staysAsTheHostHasSetIt) {
  zone("Asia/Tokyo").secondsFromUTC({0});
  EXPECT_STREQ(std::getenv("TZ"), "Asia/Tokyo");
}

}  // namespace
}  // namespace kite::Linux
