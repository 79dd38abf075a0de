#include "Linux/Machine/TimeZoneDefaults.h"

#include "Linux/Machine/PosixTimeZone.h"
#include "Linux/Machine/ZoneFile.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <string>

namespace kite::Linux {
namespace {

std::int64_t utc(int year, unsigned month, unsigned day, int hour = 0, int minute = 0) {
  using namespace std::chrono;
  const auto date = std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
  return sys_seconds(sys_days(date)).time_since_epoch().count() + 3600 * hour + 60 * minute;
}

constexpr int hour = 3600;
constexpr ZoneOffset standard(int seconds) { return {seconds, false}; }
constexpr ZoneOffset summer(int seconds) { return {seconds, true}; }

TEST(PosixTimeZone, knowsZonesWithoutSummerTime) {
  EXPECT_EQ(PosixTimeZone::parse("MST7")->at(0), standard(-7 * hour));
  EXPECT_EQ(PosixTimeZone::parse("<+0545>-5:45")->at(0), standard(5 * hour + 2700));
  EXPECT_EQ(PosixTimeZone::parse("LMT-1:02:03")->at(0), standard(hour + 123));
}

TEST(PosixTimeZone, changesAtTheSecondOfTheRule) {
  const auto zone = *PosixTimeZone::parse("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(zone.at(utc(2100, 3, 28, 1) - 1), standard(hour));
  EXPECT_EQ(zone.at(utc(2100, 3, 28, 1)), summer(2 * hour));
  EXPECT_EQ(zone.at(utc(2100, 10, 31, 1) - 1), summer(2 * hour));
  EXPECT_EQ(zone.at(utc(2100, 10, 31, 1)), standard(hour));
}

TEST(PosixTimeZone, knowsSummersThatSpanTheNewYear) {
  const auto zone = *PosixTimeZone::parse("NZST-12NZDT,M9.5.0,M4.1.0/3");
  EXPECT_EQ(zone.at(utc(2040, 1, 1)), summer(13 * hour));
  EXPECT_EQ(zone.at(utc(2040, 7, 1)), standard(12 * hour));
  EXPECT_EQ(zone.at(utc(2040, 12, 1)), summer(13 * hour));
}

TEST(PosixTimeZone, readsOffsetsOfSummerTimeAndNegativeTimes) {
  const auto lordHowe = *PosixTimeZone::parse("<+1030>-10:30<+11>-11,M10.1.0,M4.1.0");
  EXPECT_EQ(lordHowe.at(utc(2040, 1, 1)), summer(11 * hour));
  const auto nuuk = *PosixTimeZone::parse("<-02>2<-01>,M3.5.0/-1,M10.5.0/0");
  EXPECT_EQ(nuuk.at(utc(2040, 3, 25, 1) - 1), standard(-2 * hour));
  EXPECT_EQ(nuuk.at(utc(2040, 3, 25, 1)), summer(-1 * hour));
}

TEST(PosixTimeZone, countsDaysWithAndWithoutLeapDays) {
  const auto julian = *PosixTimeZone::parse("AAA0BBB,J60/0,J61/0");
  EXPECT_EQ(julian.at(utc(2024, 3, 1)), summer(hour));
  EXPECT_EQ(julian.at(utc(2024, 2, 29)), standard(0));
  EXPECT_EQ(julian.at(utc(2023, 3, 1)), summer(hour));
  const auto counted = *PosixTimeZone::parse("AAA0BBB,59/0,60/1");
  EXPECT_EQ(counted.at(utc(2024, 2, 29)), summer(hour));
  EXPECT_EQ(counted.at(utc(2023, 3, 1)), summer(hour));
}

TEST(PosixTimeZone, refusesWhatIsNoRule) {
  for (const auto* text :
       {"", "A1", "CET", "CET-25", "CET-1CEST", "CET-1CEST,M3.5.0", "CET-1CEST,M13.5.0,M10.5.0",
        "CET-1CEST,M3.6.0,M10.5.0", "CET-1CEST,M3.5.7,M10.5.0", "CET-1CEST,J0,J5", "CET-1x",
        "CET-1CEST,M3.5.0,M10.5.0/3x", "<CET-1", "CET-1CEST,M3.5.0/168,M10.5.0"})
    EXPECT_FALSE(PosixTimeZone::parse(text)) << text;
}

TEST(ZoneFileTests, knowsThePastAndTheFuture) {
  const auto berlin = *ZoneFile::load("Europe/Berlin");
  EXPECT_EQ(berlin.at(utc(1850, 1, 1)), standard(3208));
  EXPECT_EQ(berlin.at(utc(1970, 7, 1)), standard(hour));
  EXPECT_EQ(berlin.at(utc(2024, 1, 1)), standard(hour));
  EXPECT_EQ(berlin.at(utc(2024, 7, 1)), summer(2 * hour));
  EXPECT_EQ(berlin.at(utc(2100, 7, 1)), summer(2 * hour));
  EXPECT_EQ(berlin.at(utc(2024, 3, 31, 1) - 1), standard(hour));
  EXPECT_EQ(berlin.at(utc(2024, 3, 31, 1)), summer(2 * hour));
}

TEST(ZoneFileTests, knowsUnusualOffsets) {
  EXPECT_EQ(ZoneFile::load("Asia/Kathmandu")->at(utc(2024, 1, 1)), standard(5 * hour + 2700));
  EXPECT_EQ(ZoneFile::load("America/New_York")->at(utc(2024, 7, 1)), summer(-4 * hour));
  EXPECT_EQ(ZoneFile::load("Pacific/Auckland")->at(utc(2024, 1, 1)), summer(13 * hour));
}

TEST(ZoneFileTests, opensNothingOutsideTheDatabase) {
  for (const auto* name : {"", "../zoneinfo/Europe/Berlin", "/usr/share/zoneinfo/Europe/Berlin",
                           "Europe/../Europe/Berlin", "Europe/Berlin\n", "Europe", "tzdata.zi"})
    EXPECT_FALSE(ZoneFile::load(name)) << name;
}

TEST(ZoneFileTests, refusesFilesThatAreCutOff) {
  std::ifstream stream("/usr/share/zoneinfo/Europe/Berlin", std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(stream), {}};
  ASSERT_TRUE(ZoneFile::parse(whole));
  const auto footer = whole.rfind('\n', whole.size() - 2);
  for (std::size_t size = 0; size < footer; ++size)
    EXPECT_FALSE(ZoneFile::parse(whole.substr(0, size))) << size;
}

TEST(ZoneFileTests, survivesAnyChangedByte) {
  std::ifstream stream("/usr/share/zoneinfo/Europe/Berlin", std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(stream), {}};
  int readable = 0;
  for (std::size_t place = 0; place < whole.size(); ++place) {
    auto changed = whole;
    changed[place] = static_cast<char>(changed[place] ^ 0xFF);
    if (const auto file = ZoneFile::parse(changed)) {
      file->at(0);
      ++readable;
    }
  }
  EXPECT_LT(readable, static_cast<int>(whole.size()));
}

class TimeZoneDefaultsTests : public testing::Test {
 protected:
  TimeZone zone(const std::optional<std::string>& given = std::nullopt) {
    return timeZoneFrom(
        given,
        [this](const char* name) -> std::optional<std::string> {
          const auto found = variables.find(name);
          return found == variables.end() ? std::nullopt : std::optional(found->second);
        },
        files);
  }

  test::TemporaryFolder folder;
  std::map<std::string, std::string> variables;
  TimeZoneFiles files{.name = folder.path() / "timezone",
                      .link = folder.path() / "localtime",
                      .zones = "/usr/share/zoneinfo"};
};

TEST_F(TimeZoneDefaultsTests, takesTheFirstSourceThatNamesAZone) {
  EXPECT_EQ(zone().identifier, "UTC");
  std::filesystem::create_symlink("../usr/share/zoneinfo/Asia/Tokyo", files.link);
  EXPECT_EQ(zone().identifier, "Asia/Tokyo");
  std::ofstream(files.name) << "Europe/Paris\n";
  EXPECT_EQ(zone().identifier, "Europe/Paris");
  variables["TZ"] = "Europe/Berlin";
  EXPECT_EQ(zone().identifier, "Europe/Berlin");
  EXPECT_EQ(zone("Pacific/Auckland").identifier, "Pacific/Auckland");
}

TEST_F(TimeZoneDefaultsTests, understandsTheFormsOfTheVariable) {
  variables["TZ"] = ":America/New_York";
  EXPECT_EQ(zone().identifier, "America/New_York");
  variables["TZ"] = "/usr/share/zoneinfo/America/New_York";
  EXPECT_EQ(zone().identifier, "America/New_York");
}

TEST_F(TimeZoneDefaultsTests, passesOverZonesThatTheDatabaseDoesNotKnow) {
  variables["TZ"] = "CET-1CEST";
  std::ofstream(files.name) << "Europe/Paris\n";
  EXPECT_EQ(zone("Mars/Olympus_Mons").identifier, "Europe/Paris");
}

TEST_F(TimeZoneDefaultsTests, isUTCWithoutADatabase) {
  files.zones = folder.path() / "missing";
  const auto utcZone = zone("Europe/Berlin");
  EXPECT_EQ(utcZone.identifier, "UTC");
  EXPECT_EQ(utcZone.secondsFromUTC({1'700'000'000}), 0);
  EXPECT_FALSE(utcZone.isDaylightSavingTime({1'700'000'000}));
}

TEST_F(TimeZoneDefaultsTests, answersForTheDateThatIsAskedFor) {
  const auto berlin = zone("Europe/Berlin");
  const Date inSummer{static_cast<double>(utc(2024, 7, 1)) + 0.5};
  const Date inWinter{static_cast<double>(utc(2024, 1, 1)) + 0.5};
  EXPECT_EQ(berlin.secondsFromUTC(inSummer), 2 * hour);
  EXPECT_TRUE(berlin.isDaylightSavingTime(inSummer));
  EXPECT_EQ(berlin.secondsFromUTC(inWinter), hour);
  EXPECT_FALSE(berlin.isDaylightSavingTime(inWinter));
}

TEST_F(TimeZoneDefaultsTests, answersForAnyNumberAsDate) {
  const auto berlin = zone("Europe/Berlin");
  for (const double seconds :
       {1e300, -1e300, std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::lowest()}) {
    const auto offset = berlin.secondsFromUTC({seconds});
    EXPECT_TRUE(offset == hour || offset == 2 * hour || offset == 3208) << seconds;
  }
}

TEST_F(TimeZoneDefaultsTests, leavesTheZoneOfTheProcessAlone) {
  const auto* before = std::getenv("TZ");
  const std::string text = before ? before : "unset";
  zone("Asia/Tokyo").secondsFromUTC({0});
  const auto* after = std::getenv("TZ");
  EXPECT_EQ(after ? after : "unset", text);
}

}  // namespace
}  // namespace kite::Linux
