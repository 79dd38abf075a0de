#include "Collector/Server/ReceivedRequest.h"

#include "Common/LowerCase.h"

#include <algorithm>

namespace kite::tool {
namespace {

bool isNamed(const Header& header, std::string_view name) {
  return std::ranges::equal(header.name, name, {}, lowerCase, lowerCase);
}

}  // namespace

std::string_view ReceivedRequest::path() const {
  return std::string_view(target).substr(0, target.find('?'));
}

std::size_t ReceivedRequest::count(std::string_view name) const {
  return static_cast<std::size_t>(std::ranges::count_if(
      headers, [name](const Header& header) { return isNamed(header, name); }));
}

std::string_view ReceivedRequest::header(std::string_view name) const {
  const auto found =
      std::ranges::find_if(headers, [name](const Header& header) { return isNamed(header, name); });
  return found == headers.end() ? std::string_view() : std::string_view(found->value);
}

}  // namespace kite::tool
