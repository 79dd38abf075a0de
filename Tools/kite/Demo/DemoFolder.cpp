#include "Demo/DemoFolder.h"

#include "Common/CommandFailure.h"

#include <fmt/format.h>

#include <cstdlib>
#include <system_error>

namespace kite::tool {
namespace {

std::filesystem::path newFolder(const std::filesystem::path& parent) {
  auto pattern = (parent / "kite-demo-XXXXXX").string();
  if (!::mkdtemp(pattern.data()))
    throw CommandFailure(fmt::format("cannot make a folder in {}", parent.string()));
  return pattern;
}

std::filesystem::path emptyFolder(const std::string& wanted) {
  const auto folder = std::filesystem::absolute(wanted);
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  const bool isEmpty = !error && std::filesystem::is_empty(folder, error);
  if (error) throw CommandFailure(fmt::format("cannot use {}: {}", wanted, error.message()));
  return isEmpty ? folder : newFolder(folder);
}

}  // namespace

std::filesystem::path makeDemoFolder(const std::string& wanted) {
  auto folder =
      wanted.empty() ? newFolder(std::filesystem::temp_directory_path()) : emptyFolder(wanted);
  std::error_code error;
  std::filesystem::create_directory(folder / "collector", error);
  if (error)
    throw CommandFailure(fmt::format("cannot write to {}: {}", folder.string(), error.message()));
  return folder;
}

}  // namespace kite::tool
