#pragma once

#include <map>
#include <string>
#include <vector>

namespace kite::test {

/// The samples of a text in the format of Prometheus, which fails the test where it is not valid.
class MetricsText {
 public:
  explicit MetricsText(const std::string& text);

  /// By its name, with its labels as they are written.
  double operator[](const std::string& sample) const;
  /// How many samples begin so.
  std::size_t count(const std::string& begin) const;

 private:
  void readType(const std::string& line);
  void readSample(const std::string& line);
  void checkHistograms() const;

  std::map<std::string, std::string> _types;  // by the name of the family
  std::string _family;                        // that the lines are of
  std::vector<std::string> _names;            // of the samples, in order
  std::map<std::string, double> _values;
};

}  // namespace kite::test
