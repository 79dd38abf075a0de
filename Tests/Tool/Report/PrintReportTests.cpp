#include "Report/PrintReport.h"

#include <gmock/gmock.h>

#include <sstream>

namespace kite::tool {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;

Report smallReport() {
  return {
      .days = {{.day = "2026-11-22"},
               {.day = "2026-11-23",
                .clients = 4,
                .events = 10,
                .sessions = 8,
                .crashes = 1,
                .installs = 2,
                .updates = 1}},
      .total =
          {.clients = 4, .events = 10, .sessions = 8, .crashes = 1, .installs = 2, .updates = 1},
      .actions = {{"open", 8, 3}, {"buy", 1, 1}},
      .actionTotals = {.actions = 10, .names = 3}};
}

Report withAction(const std::string& name) {
  Report report = smallReport();
  report.actions.front().name = name;
  return report;
}

std::vector<int> widthsOfLines(const std::string& text) {
  std::vector<int> widths;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) widths.push_back(columnsOf(line));
  return widths;
}

TEST(PrintReport, alignsTablesForPeople) {
  EXPECT_EQ(tableReport(smallReport(), Letters::ascii),
            R"(2026-11-22 to 2026-11-23, days of UTC

Active clients and events

  day         clients                   events
  2026-11-22        0                        0
  2026-11-23        4 ################      10 ################
  in all            4                       10

Sessions that ended

  day         sessions                   crashes   crash rate
  2026-11-22         0                         0            -
  2026-11-23         8 ################        1      12.50 % ################
  in all             8                         1      12.50 %

Installs and updates

  day         installs                   updates
  2026-11-22         0                         0
  2026-11-23         2 ################        1 ################
  in all             2                         1

Actions by name, 2 of 3 names

  name    actions                   clients
  open          8 ################        3
  buy           1 ##                      1
  in all       10
)");
}

TEST(PrintReport, drawsBlocksWhereTheTerminalHasThem) {
  const std::string text = tableReport(smallReport(), Letters::unicode);
  EXPECT_THAT(text, HasSubstr("  open          8 ████████████████        3\n"));
  EXPECT_THAT(text, HasSubstr("  buy           1 ██                      1\n"));
}

TEST(PrintReport, fitsIntoEightyColumns) {
  Report report = withAction(std::string(500, 'x'));
  report.days.back() = report.total = {.day = "2026-11-23",
                                       .clients = 1'234'567'890'123,
                                       .events = 9'223'372'036'854,
                                       .sessions = 99'999'999,
                                       .crashes = 99'999'999,
                                       .installs = 1'234'567'890'123,
                                       .updates = 1};
  for (const Letters letters : {Letters::ascii, Letters::unicode}) {
    EXPECT_THAT(widthsOfLines(tableReport(report, letters)), Each(::testing::Le(80)));
  }
  EXPECT_THAT(tableReport(report, Letters::unicode), HasSubstr(std::string(31, 'x') + "… "));
}

TEST(PrintReport, keepsTerminalsFromHostileNames) {
  const Report report = withAction(
      "\x1b]0;owned\x07\x1b[31m\nred\xC2\x9B\xE2\x80\xAE\xFF"
      "end");
  for (const Letters letters : {Letters::ascii, Letters::unicode}) {
    const std::string text = tableReport(report, letters);
    EXPECT_EQ(text.find_first_of("\x1b\x07\x7F"), std::string::npos);
    EXPECT_THAT(text, AllOf(Not(HasSubstr("\xC2\x9B")), Not(HasSubstr("\xE2\x80\xAE"))));
    EXPECT_EQ(widthsOfLines(text).size(),
              widthsOfLines(tableReport(smallReport(), letters)).size());
  }
  EXPECT_THAT(tableReport(report, Letters::ascii), HasSubstr("  ?]0;owned??[31m?red???end "));
  EXPECT_THAT(svgReport(report), Not(HasSubstr("\x1b")));
  EXPECT_THAT(jsonReport(report), HasSubstr(R"("name":"\u001b]0;owned\u0007\u001b[31m\nred)"));
}

TEST(PrintReport, writesOneJSONObject) {
  EXPECT_EQ(jsonReport(smallReport()),
            R"({"actions_by_name":[{"actions":8,"clients":3,"name":"open"},)"
            R"({"actions":1,"clients":1,"name":"buy"}],)"
            R"("days":[{"clients":0,"crash_rate":null,"crashes":0,"day":"2026-11-22","events":0,)"
            R"("installs":0,"sessions":0,"updates":0},)"
            R"({"clients":4,"crash_rate":0.125,"crashes":1,"day":"2026-11-23","events":10,)"
            R"("installs":2,"sessions":8,"updates":1}],)"
            R"("first_day":"2026-11-22","last_day":"2026-11-23",)"
            R"("total":{"action_names":3,"actions":10,"clients":4,"crash_rate":0.125,"crashes":1,)"
            R"("events":10,"installs":2,"sessions":8,"updates":1}})"
            "\n");
}

TEST(PrintReport, drawsABarForEachDayThatIsNotZero) {
  const std::string svg = svgReport(withAction("<b>&\"bold\""));
  EXPECT_THAT(svg, HasSubstr("<title>2026-11-23: 10</title>"));
  EXPECT_THAT(svg, HasSubstr("<title>2026-11-23: 12.50 %</title>"));
  EXPECT_THAT(svg, Not(HasSubstr("<title>2026-11-22")));
  EXPECT_THAT(svg, HasSubstr("&lt;b&gt;&amp;&quot;bold&quot;"));
  EXPECT_THAT(svg, Not(HasSubstr("<b>")));
}

TEST(PrintReport, drawsNothingButItsAxesWhenNothingHappened) {
  const std::string svg = svgReport({.days = {{.day = "2026-11-23"}}});
  EXPECT_THAT(svg, Not(HasSubstr("<title>")));
  EXPECT_THAT(svg, Not(HasSubstr("nan")));
  EXPECT_THAT(svg, HasSubstr(">none<"));
}

TEST(PrintReport, endsAnAxisAtANumberThatIsReadEasily) {
  Report report = smallReport();
  report.days.back().clients = 1001;
  report.days.back().events = 4711;
  const std::string svg = svgReport(report);
  EXPECT_THAT(svg, AllOf(HasSubstr(">2000</text>"), HasSubstr(">5000</text>"),
                         HasSubstr(">20.00 %</text>")));
}

}  // namespace
}  // namespace kite::tool
