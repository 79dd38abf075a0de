#include "Report/PrintReport.h"
#include "Report/Series.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kite::tool {
namespace {

constexpr double pictureWidth = 760;
constexpr double plotLeft = 70;
constexpr double plotWidth = 670;
constexpr double plotHeight = 90;
constexpr double panelHeight = 150;
constexpr double headHeight = 50;
constexpr double rowHeight = 20;
constexpr std::size_t mostDayLabels = 8;
constexpr std::size_t mostActions = 10;

constexpr const char* beginning =
    R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {0:.0f} {1:.0f}" width="{0:.0f}" )"
    R"(height="{1:.0f}" font-family="sans-serif" font-size="12" fill="#24292f">
<rect width="100%" height="100%" fill="#ffffff"/>
)";

std::string escaped(std::string_view text) {
  std::string xml;
  for (const char letter : text) {
    switch (letter) {
      case '&':
        xml += "&amp;";
        break;
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      case '"':
        xml += "&quot;";
        break;
      default:
        xml += letter;
    }
  }
  return xml;
}

/// Draws the picture from its top to its bottom.
class Picture {
 public:
  void text(double x, double y, std::string_view text, std::string_view attributes = "") {
    _xml += fmt::format("<text x=\"{:.2f}\" y=\"{:.2f}\" {}>{}</text>\n", x, y, attributes,
                        escaped(text));
  }
  void rectangle(double x, double y, double width, double height, std::string_view hint) {
    _xml += fmt::format(
        "<rect x=\"{:.2f}\" y=\"{:.2f}\" width=\"{:.2f}\" height=\"{:.2f}\" fill=\"#4078c0\">"
        "<title>{}</title></rect>\n",
        x, y, width, height, escaped(hint));
  }
  void line(double y) {
    _xml += fmt::format(
        "<line x1=\"{0:.2f}\" x2=\"{1:.2f}\" y1=\"{2:.2f}\" y2=\"{2:.2f}\" stroke=\"#d0d7de\"/>\n",
        plotLeft, plotLeft + plotWidth, y);
  }
  std::string svg(double height) const {
    return fmt::format(beginning, pictureWidth, height) + _xml + "</svg>\n";
  }

 private:
  std::string _xml;
};

constexpr std::string_view strong = R"(font-weight="bold")";
constexpr std::string_view rightAligned = R"(text-anchor="end")";
constexpr std::string_view centered = R"(text-anchor="middle" font-size="10")";

/// The next number that begins with 1, 2, 3 or 5, so that an axis ends at one that is read easily.
double roundedUp(double number) {
  const double unit = std::pow(10, std::floor(std::log10(number)));
  for (const double factor : {1.0, 2.0, 3.0, 5.0}) {
    if (number <= factor * unit) return factor * unit;
  }
  return 10 * unit;
}

void drawAxis(Picture& picture, const Report& report, const std::string& full, double bottom) {
  picture.line(bottom - plotHeight);
  picture.line(bottom);
  picture.text(plotLeft - 6, bottom - plotHeight + 4, full, rightAligned);
  picture.text(plotLeft - 6, bottom + 4, "0", rightAligned);
  const std::size_t step = (report.days.size() + mostDayLabels - 1) / mostDayLabels;
  for (std::size_t i = 0; i < report.days.size(); i += step) {
    const double middle = static_cast<double>(i) + 0.5;
    picture.text(plotLeft + middle * plotWidth / static_cast<double>(report.days.size()),
                 bottom + 14, report.days[i].day, centered);
  }
}

void drawDays(Picture& picture, const Report& report, const Series& series, double top) {
  const double bottom = top + 25 + plotHeight;
  const double full = roundedUp(std::max(series.largest(report), series.smallestScale));
  const double width = plotWidth / static_cast<double>(report.days.size());
  picture.text(plotLeft, top + 12,
               fmt::format("{}: {} in all", series.title, series.text(report.total)), strong);
  drawAxis(picture, report, series.label(full), bottom);
  double x = plotLeft;
  for (const DayFigures& day : report.days) {
    const double height = plotHeight * series.value(day).value_or(0) / full;
    if (height > 0) {
      picture.rectangle(x + width * 0.1, bottom - height, width * 0.8, height,
                        fmt::format("{}: {}", day.day, series.text(day)));
    }
    x += width;
  }
}

std::size_t drawnActions(const Report& report) {
  return std::min(report.actions.size(), mostActions);
}

void drawActions(Picture& picture, const Report& report, double top) {
  picture.text(plotLeft, top + 12, "most frequent actions", strong);
  if (report.actions.empty()) picture.text(plotLeft, top + 12 + rowHeight, "none");
  for (std::size_t i = 0; i < drawnActions(report); ++i) {
    const ActionRow& action = report.actions[i];
    const double y = top + 24 + rowHeight * static_cast<double>(i);
    const double share =
        static_cast<double>(action.actions) / static_cast<double>(report.actions.front().actions);
    const auto name = printable(action.name, Letters::unicode, nameColumns);
    picture.text(plotLeft + 230, y + 11, name, rightAligned);
    picture.rectangle(plotLeft + 240, y, 340 * share, 14,
                      fmt::format("{}: {}", name, action.actions));
    picture.text(plotLeft + 246 + 340 * share, y + 11, std::to_string(action.actions));
  }
}

}  // namespace

std::string svgReport(const Report& report) {
  Picture picture;
  picture.text(
      plotLeft, 28,
      fmt::format("{} to {}, days of UTC", report.days.front().day, report.days.back().day),
      R"(font-size="16")");
  double top = headHeight;
  for (const Series& series : {clientSeries(), eventSeries(), crashRateSeries()}) {
    drawDays(picture, report, series, top);
    top += panelHeight;
  }
  drawActions(picture, report, top);
  return picture.svg(top + 40 + rowHeight * static_cast<double>(drawnActions(report)));
}

}  // namespace kite::tool
