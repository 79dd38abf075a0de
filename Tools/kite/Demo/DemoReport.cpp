#include "Demo/DemoReport.h"

#include "Common/WriteJSON.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace kite::tool {
namespace {

constexpr std::size_t shownProblems = 10;

void printRow(std::FILE* out, const std::string& type, const Tally& tally) {
  fmt::print(out, "{:<28}{:>9}{:>11}{:>12}{:>10}\n", type, tally.tracked, tally.delivered,
             tally.duplicates, tally.rejected);
}

std::string counts(const Tally& tally) {
  return fmt::format(R"("tracked":{},"delivered":{},"duplicates":{},"rejected":{})", tally.tracked,
                     tally.delivered, tally.duplicates, tally.rejected);
}

}  // namespace

void print(const Audience& audience, const Comparison& comparison,
           const std::filesystem::path& database) {
  auto* const out = audience.out;
  fmt::print(out, "\n{:<28}{:>9}{:>11}{:>12}{:>10}\n", "", "tracked", "delivered", "duplicates",
             "rejected");
  for (const auto& [type, tally] : comparison.byType) printRow(out, type, tally);
  printRow(out, "all", comparison.total());
  const auto& problems = comparison.problems;
  fmt::print(out, "\n{}\n",
             problems.empty() ? audience.good("Both sides agree, event by event.")
                              : audience.bad("The two sides disagree:"));
  for (std::size_t at = 0; at < std::min(problems.size(), shownProblems); ++at)
    fmt::print(out, "  {}\n", problems[at]);
  fmt::print(out, "The collector's database is {}\n", database.string());
}

std::string jsonReport(const Comparison& comparison, const std::filesystem::path& database) {
  std::string types;
  for (const auto& [type, tally] : comparison.byType)
    types += fmt::format("{}{}:{{{}}}", types.empty() ? "" : ",", toJSON(type), counts(tally));
  return fmt::format(R"({{{},"by_type":{{{}}},"db":{}}})", counts(comparison.total()), types,
                     toJSON(database.string()));
}

}  // namespace kite::tool
