#include "EndToEnd/Host.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <simdjson.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <regex>
#include <set>
#include <sstream>

namespace kite::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr std::ptrdiff_t scenes = 8;

/// A terminal that nobody sits at.
class Terminal {
 public:
  Terminal() : _side(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (_side < 0 || ::grantpt(_side) != 0 || ::unlockpt(_side) != 0)
      throw std::runtime_error("no terminal");
  }
  ~Terminal() { ::close(_side); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  std::string path() const {
    std::array<char, 64> name{};
    return ::ptsname_r(_side, name.data(), name.size()) == 0 ? name.data() : "";
  }
  /// Everything that was written to it, once no process has it open any more.
  std::string readAll() const {
    std::string all;
    std::array<char, 4096> buffer{};
    for (;;) {
      const auto count = ::read(_side, buffer.data(), buffer.size());
      if (count <= 0) return all;
      all.append(buffer.data(), static_cast<std::size_t>(count));
    }
  }

 private:
  int _side;
};

/// What a demo writes as its progress when standard error is a terminal.
std::string progressOnTerminal(const Arguments& environment) {
  const Folder folder;
  const Terminal terminal;
  Arguments arguments{"-u", "NO_COLOR"};
  arguments.insert(arguments.end(), environment.begin(), environment.end());
  arguments.insert(arguments.end(),
                   {KITE_TOOL_PATH, "demo", "--events", "20", "--state", folder / "demo"});
  Process demo(arguments,
               {.output = folder / "output", .errors = terminal.path(), .program = "/usr/bin/env"});
  auto progress = terminal.readAll();
  EXPECT_EQ(demo.wait(), 0) << progress;
  return progress;
}

/// Whether `text` is a line for each scene, with counts and the time left, and nothing else.
bool hasLineForEachScene(const std::string& text) {
  static const std::regex line(
      " *[0-9]+ tracked, +[0-9]+ delivered, +[0-9]+ s left \\| [^\r\n]+\r?\n");
  return std::distance(std::sregex_iterator(text.begin(), text.end(), line), {}) == scenes &&
         std::regex_replace(text, line, "").empty();
}

TEST(Demo, redrawsOneColouredLineOnATerminal) {
  const auto progress = progressOnTerminal({"TERM=xterm"});
  EXPECT_EQ(occurrences(progress, "\n"), 1);
  EXPECT_TRUE(progress.ends_with('\n'));
  EXPECT_GT(occurrences(progress, "\r"), scenes);
  EXPECT_THAT(progress, HasSubstr("\x1b["));
  EXPECT_THAT(progress, HasSubstr(" s left"));
}

TEST(Demo, hasNoColoursWhereTheyAreNotWanted) {
  const auto progress = progressOnTerminal({"TERM=xterm", "NO_COLOR=1"});
  EXPECT_THAT(progress, Not(HasSubstr("\x1b")));
  EXPECT_EQ(occurrences(progress, "\n"), 1);
  EXPECT_GT(occurrences(progress, "\r"), scenes);
}

TEST(Demo, writesLinesToATerminalThatCannotRedraw) {
  const auto progress = progressOnTerminal({"TERM=dumb"});
  EXPECT_TRUE(hasLineForEachScene(progress)) << progress;
}

TEST(Demo, writesALineForEachSceneWhereThereIsNoTerminal) {
  const Folder folder;
  const auto result = run({"demo", "--events", "20", "--state", folder / "demo"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(hasLineForEachScene(result.errors)) << result.errors;
  EXPECT_THAT(result.output, HasSubstr("\nBoth sides agree, event by event.\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("\x1b")));
}

TEST(Demo, keepsStandardOutputForTheObjectAlone) {
  const Folder folder;
  const auto result = run({"demo", "--json", "--events", "20", "--state", folder / "demo"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(occurrences(result.output, "\n"), 1);
  simdjson::dom::parser parser;
  EXPECT_TRUE(parser.parse(simdjson::padded_string(result.output)).is_object());
  EXPECT_THAT(result.errors, HasSubstr("Both sides agree"));
  EXPECT_THAT(result.errors, HasSubstr("What arrived:"));
}

TEST(Demo, endsWithCommandsThatWorkAsPrinted) {
  const Folder folder;
  const auto result = run({"demo", "--events", "20", "--state", folder / "it's a demo"});
  std::string commands;
  std::istringstream lines(result.output.substr(result.output.find("What arrived:")));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("  ")) commands += line + "\n";
  }
  const auto shell = run({"-mec", commands}, "", "/bin/bash");
  EXPECT_EQ(shell.status, 0) << shell.errors;
  EXPECT_THAT(shell.output, HasSubstr("UserInfoUpdated|8\n"));
  EXPECT_THAT(shell.output, HasSubstr("kite_pending_events"));
  EXPECT_THAT(shell.output, HasSubstr("UserAction|{\"action_info\":{\"price\":9.5}"));
}

TEST(Demo, deliversEverythingThatItTracked) {
  const Folder folder;
  const auto result = run({"demo", "--json", "--events", "500", "--state", folder / "demo"});
  ASSERT_EQ(result.status, 0) << result.errors;
  simdjson::dom::parser parser;
  const simdjson::padded_string text(result.output);
  const auto report = parser.parse(text);
  const std::int64_t tracked = report["tracked"].get_int64();
  EXPECT_GE(tracked, 500);
  EXPECT_EQ(report["delivered"].get_int64().value(), tracked);
  EXPECT_EQ(report["rejected"].get_int64().value(), 0);
  const auto events = collected(std::string(report["db"].get_string().value()));
  EXPECT_EQ(static_cast<std::int64_t>(events.size()), tracked);
  const auto all = types(events);
  EXPECT_THAT(std::set<std::string>(all.begin(), all.end()),
              testing::IsSupersetOf({"UserInfoUpdated", "Install", "Session", "UserAction",
                                     "Orders", "DebugEvent", "ExperimentSegmentReceived"}));
  EXPECT_EQ(std::count(all.begin(), all.end(), "Install"), 3);  // new, updated, installed again
  EXPECT_TRUE(queued(folder / "demo").empty());
}

}  // namespace
}  // namespace kite::test
