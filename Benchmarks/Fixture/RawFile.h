#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

namespace kite::bench {

/// What the bytes of an edit cost the file system itself: one write, and one sync where the edit
/// has one.
class RawFile {
 public:
  explicit RawFile(const std::filesystem::path& folder)
      : _file(::open((folder / "raw").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
    check(_file >= 0);
  }
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;
  ~RawFile() { ::close(_file); }

  void append(std::string_view bytes) {
    check(::write(_file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  }
  void appendAndSync(std::string_view bytes) {
    append(bytes);
    check(::fdatasync(_file) == 0);
  }

 private:
  static void check(bool isDone) {
    if (!isDone) throw std::system_error(errno, std::system_category());
  }

  int _file;
};

inline std::string joined(std::span<const std::string> texts) {
  std::string all;
  for (const auto& text : texts) all += text;
  return all;
}

}  // namespace kite::bench
