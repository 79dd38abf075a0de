#include "Demo/DemoFolder.h"

#include "Common/CommandFailure.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <system_error>

namespace kite::tool {
namespace {

std::filesystem::path temporaryFolder() {
  auto pattern = (std::filesystem::temp_directory_path() / "kite-demo-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) throw CommandFailure("cannot make a temporary folder");
  return pattern;
}

std::filesystem::path emptyFolder(const std::string& wanted) {
  const auto folder = std::filesystem::absolute(wanted);
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw CommandFailure(fmt::format("cannot make {}: {}", wanted, error.message()));
  if (!std::filesystem::is_empty(folder))
    throw CommandFailure(
        fmt::format("{} is not empty; the day begins with a first launch", wanted));
  return folder;
}

}  // namespace

std::filesystem::path makeDemoFolder(const std::string& wanted) {
  const auto folder = wanted.empty() ? temporaryFolder() : emptyFolder(wanted);
  std::error_code error;
  std::filesystem::create_directory(folder / "collector", error);
  if (error)
    throw CommandFailure(fmt::format("cannot write to {}: {}", folder.string(), error.message()));
  return folder;
}

}  // namespace kite::tool
