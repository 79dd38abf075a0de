#pragma once

#include "Report/Report.h"

namespace kite::tool {

/// One figure of every day, as it is drawn and as it is read.
struct Series {
  std::string title;
  std::optional<double> (*value)(const DayFigures& figures);
  std::string (*label)(double value);
  bool hasBars = true;
  double smallestScale = 1;  ///< what a whole bar stands for at least

  std::string text(const DayFigures& figures) const;
  double largest(const Report& report) const;
};

Series clientSeries();
Series eventSeries();
Series sessionSeries();
Series crashSeries();
Series crashRateSeries();
Series installSeries();
Series updateSeries();

}  // namespace kite::tool
