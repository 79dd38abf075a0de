#include "MetricsText.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <regex>
#include <sstream>

namespace kite::test {
namespace {

using ::testing::AnyOf;

const std::string beforeBound = "_bucket{le=\"";

double boundOf(const std::string& sample) {
  const std::string text = sample.substr(sample.find(beforeBound) + beforeBound.size());
  return text.starts_with("+Inf") ? std::numeric_limits<double>::infinity() : std::stod(text);
}

}  // namespace

MetricsText::MetricsText(const std::string& text) {
  EXPECT_TRUE(text.ends_with('\n'));
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("# TYPE ")) {
      readType(line);
    } else if (!line.starts_with("# HELP ")) {
      readSample(line);
    }
  }
  checkHistograms();
}

void MetricsText::readType(const std::string& line) {
  static const std::regex form("# TYPE ([a-z_]+) (counter|gauge|histogram)");
  std::smatch parts;
  ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
  _family = parts[1];
  EXPECT_TRUE(_types.emplace(_family, parts[2]).second) << line << " is there twice";
  EXPECT_EQ(_types[_family] == "counter", _family.ends_with("_total")) << line;
}

void MetricsText::readSample(const std::string& line) {
  static const std::regex form("([a-z_]+)(\\{[a-z_]+=\"[^\"\\\\]*\"\\})? ([0-9.e+-]+)");
  std::smatch parts;
  ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
  if (_types[_family] == "histogram") {
    EXPECT_THAT(parts[1].str(), AnyOf(_family + "_bucket", _family + "_sum", _family + "_count"));
  } else {
    EXPECT_EQ(parts[1], _family) << line << " stands behind no TYPE of its own";
  }
  const std::string sample = parts[1].str() + parts[2].str();
  _names.push_back(sample);
  EXPECT_TRUE(_values.emplace(sample, std::stod(parts[3])).second) << line << " is there twice";
}

void MetricsText::checkHistograms() const {
  for (const auto& [family, type] : _types) {
    if (type != "histogram") continue;
    double bound = -1;
    double count = 0;
    for (const std::string& name : _names) {
      if (!name.starts_with(family + beforeBound)) continue;
      EXPECT_GT(boundOf(name), bound) << name;
      EXPECT_GE((*this)[name], count) << name;
      bound = boundOf(name);
      count = (*this)[name];
    }
    EXPECT_EQ(bound, std::numeric_limits<double>::infinity()) << family;
    EXPECT_EQ(count, (*this)[family + "_count"]) << family;
  }
}

double MetricsText::operator[](const std::string& sample) const {
  const auto found = _values.find(sample);
  EXPECT_NE(found, _values.end()) << sample << " is missing";
  return found == _values.end() ? -1 : found->second;
}

std::size_t MetricsText::count(const std::string& begin) const {
  return static_cast<std::size_t>(std::ranges::count_if(
      _names, [&begin](const std::string& name) { return name.starts_with(begin); }));
}

}  // namespace kite::test
