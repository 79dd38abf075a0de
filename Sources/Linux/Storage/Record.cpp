#include "Linux/Storage/Record.h"

#include <libdeflate.h>

#include <algorithm>

namespace kite::Linux {

namespace {

// 0x8B begins no UTF-8 sequence: no text of an event looks like a record.
constexpr std::string_view magic("\x8BKit", 4);
constexpr std::size_t kindOffset = 4;
constexpr std::size_t listOffset = 8;
constexpr std::size_t lengthOffset = 12;
constexpr std::size_t editOffset = 16;
constexpr std::size_t ordinalOffset = 24;
constexpr std::size_t tagOffset = 32;
constexpr std::size_t payloadChecksumOffset = 48;
constexpr std::size_t headerChecksumOffset = 52;
constexpr std::size_t checksumSize = 4;

std::uint32_t checksum(std::uint32_t seed, std::string_view bytes) {
  // For a null pointer the library forgets the seed.
  return bytes.empty() ? seed : libdeflate_crc32(seed, bytes.data(), bytes.size());
}

std::uint32_t shortAt(std::string_view bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(numberAt(bytes, offset, 4));
}

void put(char* place, std::uint64_t number, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i, number >>= 8) place[i] = static_cast<char>(number & 0xFF);
}

}  // namespace

void appendNumber(std::string& out, std::uint64_t number, std::size_t bytes) {
  out.resize(out.size() + bytes);
  put(out.data() + out.size() - bytes, number, bytes);
}

std::uint64_t numberAt(std::string_view bytes, std::size_t offset, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t i = size; i-- > 0;)
    number = number << 8 | static_cast<unsigned char>(bytes[offset + i]);
  return number;
}

std::uint32_t seedFor(std::uint64_t store) {
  std::string bytes;
  appendNumber(bytes, store, 8);
  return checksum(0, bytes);
}

void writeHeader(char* place, const Record& record, std::uint32_t seed) {
  magic.copy(place, magic.size());
  put(place + kindOffset, static_cast<std::uint8_t>(record.kind), 4);
  put(place + listOffset, record.list, 4);
  put(place + lengthOffset, record.payload.size(), 4);
  put(place + editOffset, record.edit, 8);
  put(place + ordinalOffset, record.ordinal, 8);
  std::ranges::copy(record.tag.bytes, place + tagOffset);
  put(place + payloadChecksumOffset, checksum(seed, record.payload), checksumSize);
  put(place + headerChecksumOffset, checksum(seed, {place, headerChecksumOffset}), checksumSize);
}

void append(std::string& out, const Record& record, std::uint32_t seed) {
  const auto begin = out.size();
  appendRecord(out, record, seed, [&] { out += record.payload; });
  if (isWrittenTwice(record.kind)) out.append(out, begin);
}

bool RecordScanner::readHeader(std::size_t position, Record& record) const {
  const auto header = _file.substr(position, Record::headerSize);
  if (header.size() < Record::headerSize || !header.starts_with(magic)) return false;
  const auto covered = header.substr(0, headerChecksumOffset);
  if (shortAt(header, headerChecksumOffset) != checksum(_seed, covered)) return false;
  record.kind = static_cast<Record::Kind>(header[kindOffset]);
  record.list = shortAt(header, listOffset);
  record.edit = numberAt(header, editOffset, 8);
  record.ordinal = numberAt(header, ordinalOffset, 8);
  header.copy(reinterpret_cast<char*>(record.tag.bytes.data()), record.tag.bytes.size(), tagOffset);
  return true;
}

std::optional<std::size_t> RecordScanner::findHeader(std::size_t from, Record& record) const {
  for (auto found = _file.find(magic, from); found != std::string_view::npos;
       found = _file.find(magic, found + 1)) {
    if (readHeader(found, record)) return found;
  }
  return std::nullopt;
}

std::optional<Record> RecordScanner::next() {
  Record record{};
  if (_position >= _file.size()) return std::nullopt;
  if (!readHeader(_position, record)) {
    const auto rest = _file.substr(_position, magic.size());
    const bool isCutOff = _file.size() - _position < Record::headerSize &&
                          magic.starts_with(rest.substr(0, magic.size()));
    const auto found = findHeader(_position + 1, record);
    _isTorn = !found && isCutOff;
    _endsInZeros = !found && _file.find_first_not_of('\0', _position) == std::string_view::npos;
    if (!_isTorn) ++_damages;
    if (!found) return stop();
    _position = *found;
  }
  const auto length = shortAt(_file, _position + lengthOffset);
  _isTorn = _file.size() - _position - Record::headerSize < length;
  if (_isTorn) return stop();
  _payloadChecksum = shortAt(_file, _position + payloadChecksumOffset);
  record.payload = _payload = _file.substr(_position + Record::headerSize, length);
  _position += Record::headerSize + length;
  _end = _position;
  return record;
}

std::nullopt_t RecordScanner::stop() {
  _position = _file.size();
  return std::nullopt;
}

std::optional<std::string_view> soundPayload(std::string_view bytes, std::uint32_t seed) {
  RecordScanner scanner(bytes, seed);
  const auto record = scanner.next();
  const bool isSound =
      record && scanner.end() == bytes.size() && scanner.damages() == 0 && scanner.isPayloadSound();
  return isSound ? std::optional(record->payload) : std::nullopt;
}

bool RecordScanner::isPayloadSound() const { return checksum(_seed, _payload) == _payloadChecksum; }

}  // namespace kite::Linux
