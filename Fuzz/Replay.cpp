#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

/// Gives a fuzz target every file of a corpus folder, so that any compiler can run it as a test.
int main(int count, char** arguments) {
  if (count != 2) return std::fprintf(stderr, "usage: %s FOLDER\n", arguments[0]), 2;
  int replayed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    if (!file) return std::fprintf(stderr, "cannot read %s\n", entry.path().c_str()), 1;
    std::printf("%s\n", entry.path().c_str());
    std::fflush(stdout);  // the last name printed is that of the input that failed
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++replayed;
  }
  if (replayed == 0) std::fprintf(stderr, "no inputs in %s\n", arguments[1]);
  return replayed > 0 ? 0 : 1;
}
