#include "Linux/Machine/ZoneFile.h"

#include "Linux/Storage/PrivateFolder.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::size_t headerSize = 44;
constexpr std::size_t typeSize = 6;
constexpr std::size_t largestFile = std::size_t{1} << 20;

std::int64_t bigEndian(std::string_view bytes) {
  std::uint64_t number = bytes.empty() || bytes.front() >= 0 ? 0 : ~std::uint64_t{0};
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  return static_cast<std::int64_t>(number);
}

bool isZoneName(const std::string& name) {
  const auto isAllowed = [](unsigned char character) {
    return std::isalnum(character) ||
           std::string_view("_+-/.").find(static_cast<char>(character)) != std::string_view::npos;
  };
  return !name.empty() && name.front() != '/' && name.find("..") == std::string::npos &&
         std::all_of(name.begin(), name.end(), isAllowed);
}

}  // namespace

/// Header and data of one of the two generations in a file.
struct ZoneFile::Block {
  static std::optional<Block> at(std::string_view bytes, bool isSecond) {
    if (bytes.size() < headerSize || !bytes.starts_with("TZif")) return std::nullopt;
    const auto count = [&](std::size_t place) {
      return static_cast<std::size_t>(
          static_cast<std::uint32_t>(bigEndian(bytes.substr(20 + 4 * place, 4))));
    };
    Block block;
    block.timeSize = isSecond ? 8 : 4;
    const auto leapSeconds = count(2) * (block.timeSize + 4);
    block.transitions = count(3);
    block.types = count(4);
    block.size = headerSize + block.transitions * (block.timeSize + 1) + block.types * typeSize +
                 count(5) + leapSeconds + count(1) + count(0);
    if (block.size > bytes.size()) return std::nullopt;
    block.version = bytes[4];
    block.data = bytes.substr(headerSize);
    return block;
  }

  std::int64_t time(std::size_t place) const {
    return bigEndian(data.substr(place * timeSize, timeSize));
  }
  std::uint8_t typeAfter(std::size_t place) const {
    return static_cast<std::uint8_t>(data[transitions * timeSize + place]);
  }
  ZoneOffset type(std::size_t place) const {
    const auto entry = data.substr(transitions * (timeSize + 1) + place * typeSize, typeSize);
    return {static_cast<std::int32_t>(bigEndian(entry.substr(0, 4))), entry[4] != 0};
  }

  char version = 0;
  std::size_t timeSize = 0;
  std::size_t transitions = 0;
  std::size_t types = 0;
  std::size_t size = 0;  // with the header
  std::string_view data;
};

std::optional<ZoneFile> ZoneFile::parse(std::string_view bytes) {
  auto block = Block::at(bytes, false);
  ZoneFile file;
  if (block && block->version >= '2') {
    bytes.remove_prefix(block->size);
    block = Block::at(bytes, true);
    if (!block) return std::nullopt;
    auto footer = bytes.substr(block->size);
    if (footer.starts_with('\n')) footer.remove_prefix(1);
    file._rule = PosixTimeZone::parse(footer.substr(0, footer.find('\n')));
  }
  if (!block || block->types == 0) return std::nullopt;
  for (std::size_t i = 0; i < block->types; ++i) file._types.push_back(block->type(i));
  for (std::size_t i = 0; i < block->transitions; ++i) {
    if (block->typeAfter(i) >= block->types) return std::nullopt;
    file._transitions.push_back(block->time(i));
    file._typesAfter.push_back(block->typeAfter(i));
  }
  if (!std::is_sorted(file._transitions.begin(), file._transitions.end())) return std::nullopt;
  return file;
}

std::optional<ZoneFile> ZoneFile::load(const std::string& name, const std::string& folder) {
  if (!isZoneName(name)) return std::nullopt;
  const auto bytes = readFile(folder + "/" + name, largestFile);
  return bytes ? parse(*bytes) : std::nullopt;
}

ZoneOffset ZoneFile::at(std::int64_t seconds) const {
  const auto next = std::upper_bound(_transitions.begin(), _transitions.end(), seconds);
  if (next == _transitions.end() && _rule) return _rule->at(seconds);
  if (next == _transitions.begin()) return _types.front();
  return _types[_typesAfter[static_cast<std::size_t>(next - _transitions.begin()) - 1]];
}

}  // namespace kite::Linux
