#include "Inspector/ExportFormat.h"

#include "Inspector/Call.h"
#include "Inspector/RowsJSON.h"

#include "Collector/EventFacts.h"
#include "Collector/JSONText.h"

#include <fmt/format.h>

#include <array>

namespace kite::tool {
namespace {

/// In quotes; and no program that calculates takes it for a formula.
std::string cell(std::string_view text) {
  std::string quoted = "\"";
  if (!text.empty() && std::string_view("=+-@\t\r").find(text.front()) != std::string_view::npos) {
    quoted += '\'';
  }
  for (const char letter : text) quoted += letter == '"' ? "\"\"" : std::string(1, letter);
  return quoted + "\"";
}

std::string csvRow(const EventRecord& event) {
  const EventFacts facts = factsOf(event.id, event.type, event.data);
  return fmt::format("{},{},{},{},{},{},{},{},{},{},{},{},{},{}\r\n", event.seq, cell(event.id),
                     cell(event.type), cell(facts.name.value_or("")), realJSON(event.timestamp),
                     realJSON(event.receivedAt), cell(event.app), cell(event.client),
                     cell(facts.session.value_or("")), event.isTester, event.duplicates,
                     cell(event.userInfo), cell(event.userIDs), cell(event.data));
}

std::string jsonLine(const EventRecord& event) { return recordJSON(event) + "\n"; }

constexpr std::array formats{
    ExportFormat{"ndjson", "application/x-ndjson", "events.ndjson", "", "", "", jsonLine},
    ExportFormat{"json", "application/json", "events.json", "[\n", ",\n", "\n]\n", recordJSON},
    ExportFormat{"csv", "text/csv; charset=utf-8", "events.csv",
                 "seq,id,type,name,timestamp,received_at,app,client,session,tester,duplicates,"
                 "user_info,user_ids,data\r\n",
                 "", "", csvRow}};

}  // namespace

const ExportFormat& exportFormat(std::string_view name) {
  if (name.empty()) return formats.front();
  for (const ExportFormat& format : formats) {
    if (format.name == name) return format;
  }
  throw APIError(400, "format is ndjson, json or csv");
}

}  // namespace kite::tool
