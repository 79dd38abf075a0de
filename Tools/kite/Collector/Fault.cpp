#include "Collector/Fault.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace kite::tool {
namespace {

using namespace faults;

constexpr std::size_t mostRequests = 1'000'000'000;
constexpr std::size_t longestDelay = 24 * 60 * 60 * 1000;

/// The decimal number that is all of `text`, if it is within the range.
std::optional<std::size_t> number(std::string_view text, std::size_t least, std::size_t most) {
  std::size_t value = 0;
  const auto end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  if (text.empty() || error != std::errc() || rest != end) return std::nullopt;
  return value >= least && value <= most ? std::optional(value) : std::nullopt;
}

/// Cuts a count off the end of `text`: 1 when there is none, nothing when it is out of range.
std::optional<std::size_t> cutCount(std::string_view& text) {
  const auto digits = text.find_last_not_of("0123456789") + 1;
  if (digits == 0 || digits == text.size() || text[digits - 1] != 'x') return 1;
  const auto count = number(text.substr(digits), 1, mostRequests);
  text = text.substr(0, digits - 1);
  return count;
}

std::optional<Fault::Kind> kindOf(std::string_view name, std::string_view argument) {
  if (name == "reset" && argument.empty()) return Reset{};
  if (name == "truncate" && argument.empty()) return Truncate{};
  if (name == "body" && !argument.empty()) return AnswerFile{std::string(argument)};
  if (name == "redirect" && !argument.empty()) return Redirect{std::string(argument)};
  if (name == "status") {
    if (const auto status = number(argument, 200, 599)) {
      return AnswerStatus{static_cast<int>(*status)};
    }
  }
  if (name == "delay") {
    if (const auto time = number(argument, 0, longestDelay)) {
      return Delay{std::chrono::milliseconds(*time)};
    }
  }
  return std::nullopt;
}

}  // namespace

Result<Fault, std::string> parseFault(std::string_view text) {
  std::string_view rest = text;
  const auto count = cutCount(rest);
  const auto colon = rest.find(':');
  const bool hasArgument = colon != std::string_view::npos;
  const auto argument = hasArgument ? rest.substr(colon + 1) : std::string_view();
  const auto kind = kindOf(rest.substr(0, colon), argument);
  if (!count || !kind || (hasArgument && argument.empty())) {
    return Failure{
        fmt::format("\"{}\" is no fault; give status:CODE, body:FILE, delay:MS, reset, "
                    "redirect:URL or truncate, and xN behind it for N requests",
                    text)};
  }
  return Fault{.kind = *kind, .text = std::string(rest), .count = *count};
}

void FaultQueue::add(Fault fault) {
  if (fault.count == 0) return;
  const std::scoped_lock lock(_mutex);
  _faults.push_back(std::move(fault));
}

std::optional<Fault> FaultQueue::take() {
  const std::scoped_lock lock(_mutex);
  if (_faults.empty()) return std::nullopt;
  Fault fault = _faults.front();
  if (--_faults.front().count == 0) _faults.pop_front();
  return fault;
}

std::vector<Fault> FaultQueue::list() const {
  const std::scoped_lock lock(_mutex);
  return {_faults.begin(), _faults.end()};
}

void FaultQueue::clear() {
  const std::scoped_lock lock(_mutex);
  _faults.clear();
}

}  // namespace kite::tool
