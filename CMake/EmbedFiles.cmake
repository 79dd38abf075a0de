# embed_page(TARGET FOLDER): makes the files of the folder, and those that are added to it later, part of the program. What
# `embeddedFiles()` lists is written when CMake runs; a file that changes is taken in by the next build.
function(embed_page target folder)
  file(GLOB files RELATIVE ${folder} CONFIGURE_DEPENDS ${folder}/*.html ${folder}/*.css ${folder}/*.js ${folder}/*.svg)
  list(LENGTH files count)
  set(bytes "")
  set(declarations "")
  set(rows "")
  set(paths "")
  set(index 0)
  foreach(file ${files})
    string(APPEND bytes "    \".hidden kite_page_${index}, kite_page_${index}_end\\n\"\n"
                        "    \".global kite_page_${index}\\n\" \".global kite_page_${index}_end\\n\"\n"
                        "    \"kite_page_${index}: .incbin \\\"${folder}/${file}\\\"\\n\" \"kite_page_${index}_end:\\n\"\n")
    string(APPEND declarations "extern const char kite_page_${index}[];\nextern const char kite_page_${index}_end[];\n")
    string(APPEND rows "      PageFile{\"/${file}\", \"\", textBetween(kite_page_${index}, kite_page_${index}_end)},\n")
    list(APPEND paths ${folder}/${file})
    math(EXPR index "${index} + 1")
  endforeach()
  set(source ${CMAKE_CURRENT_BINARY_DIR}/EmbeddedFiles.cpp)
  file(CONFIGURE OUTPUT ${source} @ONLY CONTENT [==[
#include "Inspector/PageFiles.h"

#include <array>

asm(".pushsection .rodata\n"
@bytes@    ".popsection\n");

extern "C" {
@declarations@}

namespace kite::tool {

std::span<const PageFile> embeddedFiles() {
  [[maybe_unused]] const auto textBetween = [](const char* begin, const char* end) {
    return std::string_view(begin, static_cast<std::size_t>(end - begin));
  };
  static const std::array<PageFile, @count@> files{
@rows@  };
  return files;
}

}  // namespace kite::tool
]==])
  target_sources(${target} PRIVATE ${source})
  set_source_files_properties(${source} PROPERTIES OBJECT_DEPENDS "${paths}" SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
