#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace kite::tool {

/// A file of the page, as it stands in the program.
struct PageFile {
  std::string_view path;  ///< "/index.html"
  std::string_view contentType;
  std::string_view bytes;
};

std::optional<PageFile> pageFile(std::string_view path);

/// All that are embedded; made by CMake/EmbedFiles.cmake. The content types are still empty.
std::span<const PageFile> embeddedFiles();

}  // namespace kite::tool
