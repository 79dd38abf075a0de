#pragma once

#include <Kite/KiteValue.h>

#include <fcntl.h>
#include <simdjson.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <iostream>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kite::faults {

/// One line `{"op": …}` of the input.
class Line {
 public:
  explicit Line(std::string_view text) : _root(_parser.parse(text.data(), text.size())) {}

  std::string text(std::string_view key) const {
    return std::string(std::string_view(_root[key].get_string().value()));
  }
  std::int64_t integer(std::string_view key) const { return _root[key].get_int64().value(); }
  double number(std::string_view key) const { return _root[key].get_double().value(); }
  KiteData data(std::string_view key) const {
    std::map<std::string, KiteValue, std::less<>> data;
    const simdjson::dom::object members = _root[key].get_object().value();
    for (const auto& [name, value] : members) data.emplace(name, converted(value));
    return data;
  }

 private:
  static KiteValue converted(const simdjson::dom::element& element) {
    if (element.is_int64()) return std::int64_t(element);
    if (element.is_double()) return double(element);
    if (element.is_bool()) return bool(element);
    if (element.is_string()) return std::string(std::string_view(element));
    throw std::runtime_error("only plain values are understood");
  }

  simdjson::dom::parser _parser;
  simdjson::dom::element _root;
};

/// `--name value` for all options; a flag is followed by "1".
class Options {
 public:
  Options(int count, char** arguments) {
    for (int at = 1; at + 1 < count; at += 2) _values[arguments[at]] = arguments[at + 1];
  }
  std::string text(const std::string& name, const std::string& otherwise = "") const {
    const auto found = _values.find("--" + name);
    return found == _values.end() ? otherwise : found->second;
  }
  double number(const std::string& name, double otherwise) const {
    const auto given = text(name);
    return given.empty() ? otherwise : std::stod(given);
  }
  bool has(const std::string& name) const { return _values.contains("--" + name); }

 private:
  std::map<std::string, std::string> _values;
};

inline void reply(const std::string& members) {
  const auto line = "{\"ok\":true" + members + "}\n";
  if (::write(STDOUT_FILENO, line.data(), line.size()) < 0) throw std::runtime_error("no reader");
}

/// A number in a file, which outlives the process however it ends.
inline std::atomic<double>* sharedNumber(const std::string& file) {
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (descriptor < 0 || ::ftruncate(descriptor, sizeof(double)) != 0)
    throw std::runtime_error("cannot make " + file);
  void* memory = ::mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("cannot map " + file);
  return new (memory) std::atomic<double>(0);
}

}  // namespace kite::faults
