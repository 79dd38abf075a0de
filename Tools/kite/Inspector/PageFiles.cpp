#include "Inspector/PageFiles.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kite::tool {
namespace {

std::string_view contentTypeOf(std::string_view path) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 4> types{
      {{".html", "text/html; charset=utf-8"},
       {".css", "text/css; charset=utf-8"},
       {".js", "text/javascript; charset=utf-8"},
       {".svg", "image/svg+xml"}}};
  for (const auto& [end, type] : types) {
    if (path.ends_with(end)) return type;
  }
  return "application/octet-stream";
}

}  // namespace

std::optional<PageFile> pageFile(std::string_view path) {
  const auto files = embeddedFiles();
  const auto found = std::ranges::find(files, path, &PageFile::path);
  if (found == files.end()) return std::nullopt;
  PageFile file = *found;
  file.contentType = contentTypeOf(path);
  return file;
}

}  // namespace kite::tool
