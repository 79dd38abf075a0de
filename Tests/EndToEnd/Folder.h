#pragma once

#include <stdlib.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace kite::test {

/// A folder of its own for every test, gone with it. Other users may look into it.
class Folder {
 public:
  Folder() {
    auto pattern = (std::filesystem::temp_directory_path() / "kite-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    path = pattern;
    std::filesystem::permissions(path, std::filesystem::perms(0755));
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string operator/(const std::string& name) const { return path / name; }

  std::filesystem::path path;
};

inline std::string contents(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

inline std::string writeFile(const std::filesystem::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
  return file;
}

}  // namespace kite::test
