#include "Report/Report.h"
#include "Report/SQLiteReportSource.h"
#include "ReportedEvents.h"
#include "Support/TemporaryFolder.h"
#include "Tool/CollectorDatabase.h"

#include <gmock/gmock.h>

#include <fstream>

namespace kite::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using tool::ActionRow;
using tool::DayFigures;
using tool::readReport;

class ReadReport : public ::testing::Test {
 protected:
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  std::string refusal(const std::string& place) const {
    try {
      readReport(place, reportedDays);
    } catch (const tool::StoreError& error) {
      return error.what();
    }
    return "";
  }

  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder.path() / name) << bytes;
    return folder.path() / name;
  }

  TemporaryFolder folder;
  const std::string file = folder.path() / "events.db";
};

TEST_F(ReadReport, countsByDayAndInAll) {
  {
    ReportedStore store(file);
    addReportedDays(store);
  }
  const auto report = readReport(file, reportedDays);
  EXPECT_THAT(report.days,
              ElementsAre(DayFigures{.day = "2026-11-21", .clients = 2, .events = 3, .installs = 1},
                          DayFigures{.day = "2026-11-22"},
                          DayFigures{.day = "2026-11-23",
                                     .clients = 2,
                                     .events = 6,
                                     .sessions = 2,
                                     .crashes = 1,
                                     .updates = 1}));
  EXPECT_EQ(
      report.total,
      (DayFigures{
          .clients = 2, .events = 9, .sessions = 2, .crashes = 1, .installs = 1, .updates = 1}));
  EXPECT_EQ(tool::crashRate(report.total), 0.5);
  EXPECT_THAT(report.actions, ElementsAre(ActionRow{"open", 3, 2}, ActionRow{"buy", 1, 1}));
  EXPECT_EQ(report.actionTotals.actions, 4);
  EXPECT_EQ(report.actionTotals.names, 2);
}

TEST_F(ReadReport, hasTheMostFrequentActionsInTheirOrder) {
  {
    ReportedStore store(file);
    std::vector<tool::ReceivedEvent> events;
    for (int i = 10; i < 35; ++i) {
      events.push_back(reportedAction(november(23), std::to_string(i)));
    }
    for (const std::string name : {"é", "b", "a", "Z", "b", "é", "a", "Z"}) {
      events.push_back(reportedAction(november(22), name));
    }
    store.add("client", november(23, reportedNoon), events);
  }
  const auto report = readReport(file, reportedDays);
  ASSERT_EQ(report.actions.size(), 20U);
  EXPECT_EQ(report.actions[0], (ActionRow{"Z", 2, 1}));
  EXPECT_EQ(report.actions[1].name, "a");
  EXPECT_EQ(report.actions[2].name, "b");
  EXPECT_EQ(report.actions[3].name, "é");
  EXPECT_EQ(report.actions[4], (ActionRow{"10", 1, 1}));
  EXPECT_EQ(report.actions[19].name, "25");
  EXPECT_EQ(report.actionTotals.names, 29);
  EXPECT_EQ(report.actionTotals.actions, 33);
}

TEST_F(ReadReport, isOfZerosWhenNothingWasEverReceived) {
  { const ReportedStore store(file); }
  const auto report = readReport(file, reportedDays);
  EXPECT_THAT(report.days,
              ElementsAre(DayFigures{.day = "2026-11-21"}, DayFigures{.day = "2026-11-22"},
                          DayFigures{.day = "2026-11-23"}));
  EXPECT_EQ(report.total, DayFigures{});
  EXPECT_THAT(report.actions, IsEmpty());
  EXPECT_EQ(tool::crashRate(report.total), std::nullopt);
}

TEST_F(ReadReport, seesWhatACollectorThatRunsHasJustStored) {
  ReportedStore store(file);
  addReportedDays(store);
  EXPECT_EQ(readReport(file, reportedDays).total.events, 9);
  store.add("client-4", november(23, reportedNoon), {reportedAction(november(23), "open")});
  EXPECT_EQ(readReport(file, reportedDays).total.events, 10);
}

TEST_F(ReadReport, isOfOneMomentWhileACollectorStores) {
  ReportedStore store(file);
  addReportedDays(store);
  tool::SQLiteReportSource source(file, tool::Connection::Access::readOnly);
  EXPECT_EQ(source.clients(reportedDays), 2);
  store.add("client-4", november(23, reportedNoon), {reportedAction(november(23), "open")});
  EXPECT_EQ(source.clients(reportedDays), 2);
  EXPECT_EQ(source.actionTotals(reportedDays).actions, 4);
}

TEST_F(ReadReport, leavesTheFileAndItsFolderAsTheyAre) {
  {
    ReportedStore store(file);
    addReportedDays(store);
  }
  const auto changed = std::filesystem::last_write_time(file);
  readReport(file, reportedDays);
  EXPECT_THAT(files(), ElementsAre("events.db"));
  EXPECT_EQ(std::filesystem::last_write_time(file), changed);
}

TEST_F(ReadReport, takesAnyNameOfAFile) {
  const std::string odd = folder.path() / "a b?immutable=0#%41&.db";
  {
    ReportedStore store(odd);
    addReportedDays(store);
  }
  EXPECT_EQ(readReport(odd, reportedDays).total.events, 9);
  EXPECT_EQ(readReport("/" + odd, reportedDays).total.events, 9);
}

TEST_F(ReadReport, makesNoFile) {
  EXPECT_EQ(refusal(file), "there is no such file");
  EXPECT_EQ(refusal(""), "there is no such file");
  EXPECT_EQ(refusal(folder.path()), "it is no file");
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ReadReport, refusesAFileThatIsNoCollectors) {
  EXPECT_EQ(refusal(write("text", std::string(5000, 'x'))), "file is not a database");
  EXPECT_EQ(refusal(write("empty", "")), "it is no database of a collector");
  query(write("other", ""), "CREATE TABLE events(id TEXT)");
  EXPECT_EQ(refusal(folder.path() / "other"), "it is no database of a collector");
}

TEST_F(ReadReport, refusesAFileThatHasNoViewsYet) {
  { const ReportedStore store(file); }
  query(file, "DROP VIEW crash_rate");
  EXPECT_THAT(refusal(file), HasSubstr("older program"));
}

TEST_F(ReadReport, saysWhatTheViewsSay) {
  {
    ReportedStore store(file);
    addReportedDays(store);
  }
  const tool::DayRange all{.first = reportedDays.first - std::chrono::days(1),
                           .last = reportedDays.last};
  std::string actions;
  for (const ActionRow& row : readReport(file, all).actions) {
    actions +=
        row.name + " " + std::to_string(row.actions) + " " + std::to_string(row.clients) + "\n";
  }
  EXPECT_EQ(actions, query(file,
                           "SELECT name, actions, clients FROM actions_by_name "
                           "ORDER BY actions DESC, name"));
}

}  // namespace
}  // namespace kite::test
