#include "Common/WriteJSON.h"
#include "Report/PrintReport.h"

namespace kite::tool {
namespace {

JSONValue::Object figuresObject(const DayFigures& figures) {
  const auto rate = crashRate(figures);
  return {{"clients", figures.clients},
          {"events", figures.events},
          {"sessions", figures.sessions},
          {"crashes", figures.crashes},
          {"crash_rate", rate ? JSONValue(*rate) : JSONValue()},
          {"installs", figures.installs},
          {"updates", figures.updates}};
}

JSONValue::Array dayObjects(const Report& report) {
  JSONValue::Array days;
  for (const DayFigures& day : report.days) {
    JSONValue::Object object = figuresObject(day);
    object["day"] = day.day;
    days.emplace_back(std::move(object));
  }
  return days;
}

JSONValue::Array actionObjects(const Report& report) {
  JSONValue::Array actions;
  for (const ActionRow& action : report.actions) {
    actions.emplace_back(JSONValue::Object{
        {"name", action.name}, {"actions", action.actions}, {"clients", action.clients}});
  }
  return actions;
}

}  // namespace

std::string jsonReport(const Report& report) {
  JSONValue::Object total = figuresObject(report.total);
  total["actions"] = report.actionTotals.actions;
  total["action_names"] = report.actionTotals.names;
  return toJSON(JSONValue::Object{{"first_day", report.days.front().day},
                                  {"last_day", report.days.back().day},
                                  {"total", std::move(total)},
                                  {"days", dayObjects(report)},
                                  {"actions_by_name", actionObjects(report)}}) +
         "\n";
}

}  // namespace kite::tool
