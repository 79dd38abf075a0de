#include "Host/Operations.h"

namespace kite::tool {
namespace {

/// Without a place of its own, a debug event names its line in the script.
void trackDebugEvent(KiteManager& kite, const Arguments& its) {
  const auto file = its.optionalText("file").value_or(its.place().source);
  const auto function = its.optionalText("function").value_or("trackDebugEvent");
  const auto line = its.optionalLine("line").value_or(its.place().line);
  kite.trackDebugEvent({.severity = its.severity("severity"),
                        .message = its.text("message"),
                        .category = its.text("category"),
                        .domain = its.optionalText("domain"),
                        .code = its.optionalText("code"),
                        .type = its.optionalText("type"),
                        .description = its.optionalText("description"),
                        .info = its.optionalData("info"),
                        .where = {file.c_str(), function.c_str(), line}});
}

}  // namespace

const std::vector<Operation>& operations() {
  static const std::vector<Operation> table{
      {"addSessionData",
       {"key", "value"},
       [](auto& kite, auto& its) { kite.addSessionData(its.text("key"), its.value("value")); }},
      {"updateSessionData",
       {"with"},
       [](auto& kite, auto& its) { kite.updateSessionData(its.data("with")); }},
      {"addUserInfo",
       {"key", "value"},
       [](auto& kite, auto& its) { kite.addUserInfo(its.text("key"), its.value("value")); }},
      {"updateUserInfo",
       {"with"},
       [](auto& kite, auto& its) { kite.updateUserInfo(its.data("with")); }},
      {"trackUserAction",
       {"name", "data"},
       [](auto& kite, auto& its) { kite.trackUserAction(its.text("name"), its.data("data")); }},
      {"trackCustomEvent",
       {"in", "data"},
       [](auto& kite, auto& its) { kite.trackCustomEvent(its.text("in"), its.data("data")); }},
      {"trackLog",
       {"name", "severity", "data"},
       [](auto& kite, auto& its) {
         kite.trackLog(its.text("name"), its.severity("severity"), its.data("data"));
       }},
      {"trackDebugEvent",
       {"severity", "message", "category", "domain", "code", "type", "description", "info", "file",
        "function", "line"},
       trackDebugEvent},
      {"trackExperimentSegmentsReceived",
       {"segments"},
       [](auto& kite, auto& its) {
         kite.trackExperimentSegmentsReceived(its.segments("segments"));
       }},
      {"monetizationFieldsDidChange",
       {"newValue"},
       [](auto& kite, auto& its) { kite.monetizationFieldsDidChange(its.data("newValue")); }},
      {"isBaselineUserDidChange",
       {"newValue"},
       [](auto& kite, auto& its) { kite.isBaselineUserDidChange(its.boolean("newValue")); }},
      {"isFreeUserDidChange",
       {"newValue"},
       [](auto& kite, auto& its) { kite.isFreeUserDidChange(its.boolean("newValue")); }},
      {"setAnalyticsTrackingConsent",
       {"value"},
       [](auto& kite, auto& its) { kite.setAnalyticsTrackingConsent(its.boolean("value")); }},
      {"setProfilingTrackingConsent",
       {"value"},
       [](auto& kite, auto& its) { kite.setProfilingTrackingConsent(its.boolean("value")); }},
      {"addTechnicalEvents",
       {"names"},
       [](auto& kite, auto& its) { kite.addTechnicalEvents(its.names("names")); }},
      {"addProfilingOnlyEvents",
       {"names"},
       [](auto& kite, auto& its) { kite.addProfilingOnlyEvents(its.names("names")); }},
  };
  return table;
}

}  // namespace kite::tool
