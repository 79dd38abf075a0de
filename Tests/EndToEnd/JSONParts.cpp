#include "EndToEnd/JSONParts.h"

#include <gtest/gtest.h>
#include <simdjson.h>

#include <limits>

namespace kite::test {
namespace {

std::string_view rawText(simdjson::ondemand::value value) {
  const auto type = value.type().value();
  if (type == simdjson::ondemand::json_type::object)
    return value.get_object().value().raw_json().value();
  if (type == simdjson::ondemand::json_type::array)
    return value.get_array().value().raw_json().value();
  return value.raw_json_token();
}

}  // namespace

std::string partOf(const std::string& json, const std::string& pointer) {
  const simdjson::padded_string padded(json);
  simdjson::ondemand::parser parser;
  auto document = parser.iterate(padded);
  simdjson::ondemand::value value;
  if (document.at_pointer(pointer).get(value) != simdjson::SUCCESS) return "";
  const std::string text(rawText(value));
  return text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
}

double numberIn(const std::string& json, const std::string& pointer) {
  const auto text = partOf(json, pointer);
  return text.empty() ? std::numeric_limits<double>::quiet_NaN() : std::stod(text);
}

void expectParts(const std::string& json, const Parts& parts) {
  for (const auto& [pointer, text] : parts)
    EXPECT_EQ(partOf(json, pointer), text) << pointer << " in " << json;
}

}  // namespace kite::test
