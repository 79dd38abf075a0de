#include "Collector/RequestReport.h"

#include "Collector/JSONText.h"

#include <fmt/format.h>

namespace kite::tool {

std::string jsonLine(const RequestReport& report) {
  std::string line = fmt::format(R"({{"event":"request","method":{},"path":{},"status":{})",
                                 quotedJSON(report.method), quotedJSON(report.path), report.status);
  if (report.errorCode) line += fmt::format(R"(,"error_code":{})", *report.errorCode);
  if (report.message) line += R"(,"message":)" + quotedJSON(*report.message);
  line += fmt::format(R"(,"events":{},"new":{},"duplicates":{})",
                      report.newEvents + report.duplicates, report.newEvents, report.duplicates);
  if (report.fault) line += R"(,"fault":)" + quotedJSON(*report.fault);
  return line + "}";
}

}  // namespace kite::tool
