#pragma once

#include <Kite/Base/UUID.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kite::Linux {

/// The unit of a store's files: a header of 56 bytes and a payload, each with a CRC-32.
///
///   0  magic         4  kind, three zero bytes    8  list            12  length of the payload
///  16  edit         24  ordinal                  32  tag (16 bytes)
///  48  CRC of payload                            52  CRC of the bytes before
///
/// Numbers are little-endian. Both checksums begin with the store's seed, so that a record of
/// another store is never taken for one of this. The header's own checksum lets a reader step over
/// a damaged payload, and list rows without reading them.
struct Record {
  enum class Kind : std::uint8_t {
    head = 1,      ///< the store's identity; the first record of every file
    value,         ///< key and value
    valueRemoved,  ///< key
    listBegun,     ///< key; `list` is the number of its list from now on
    listEnded,
    row,          ///< an element of `list` at `ordinal`
    rowsRemoved,  ///< ranges of ordinals of `list`
    editEnd,      ///< all of `edit` is in the file
    rowIndex,     ///< of a sealed segment: its size, then an entry for each of its rows
    listNote,     ///< the note of `list` from now on
  };

  static constexpr std::size_t headerSize = 56;

  Kind kind;
  std::uint32_t list = 0;
  std::uint64_t edit = 0;
  std::uint64_t ordinal = 0;
  UUID tag = {};
  std::string_view payload = {};
};

/// All records but rows are written twice: one wrong byte must not cost more than one row, nor
/// bring an older value back. An index can be made again.
inline bool isWrittenTwice(Record::Kind kind) {
  return kind != Record::Kind::row && kind != Record::Kind::rowIndex;
}

/// What both checksums of a store's records begin with.
std::uint32_t seedFor(std::uint64_t store);

/// Writes `headerSize` bytes.
void writeHeader(char* place, const Record& record, std::uint32_t seed);

/// Once. The payload is what `appendPayload()` appends to `out`.
template <class AppendPayload>
void appendRecord(std::string& out, Record record, std::uint32_t seed,
                  AppendPayload appendPayload) {
  const auto begin = out.size();
  out.resize(begin + Record::headerSize);
  appendPayload();
  record.payload = std::string_view(out).substr(begin + Record::headerSize);
  writeHeader(out.data() + begin, record, seed);
}

/// As often as records of its kind are written.
void append(std::string& out, const Record& record, std::uint32_t seed);

void appendNumber(std::string& out, std::uint64_t number, std::size_t bytes);
std::uint64_t numberAt(std::string_view bytes, std::size_t offset, std::size_t size);

/// The payload of the record that `bytes` are, all of them; nothing when any of it is damaged.
std::optional<std::string_view> soundPayload(std::string_view bytes, std::uint32_t seed);

/// Walks the records of a file, past all that is damaged.
class RecordScanner {
 public:
  RecordScanner(std::string_view file, std::uint32_t seed, std::size_t from = 0)
      : _file(file), _seed(seed), _position(from), _end(from) {}

  /// The next record with a sound header; nothing at the end. Its payload may be damaged.
  std::optional<Record> next();
  /// Of the record that `next` gave. Looks at all bytes of it.
  bool isPayloadSound() const;
  /// Counts the record that `next` gave as damaged.
  void rejectPayload() { ++_damages; }

  /// Where the last record that `next` gave ends.
  std::uint64_t end() const { return _end; }
  /// Stretches of bytes that are not the file's any more. What a kill leaves, a record that is cut
  /// off by the end of the file, is none.
  std::size_t damages() const { return _damages; }
  /// Whether the file ends within a record.
  bool isTorn() const { return _isTorn; }
  /// Whether all behind the last record is zeros, which counts as one damage: a power cut leaves
  /// them, when a file's size reached the medium and its last bytes did not.
  bool endsInZeros() const { return _endsInZeros; }
  /// Whether anything else is damaged.
  bool isDamagedBefore() const { return _damages > (_endsInZeros ? 1 : 0); }

 private:
  std::nullopt_t stop();
  bool readHeader(std::size_t position, Record& record) const;
  std::optional<std::size_t> findHeader(std::size_t from, Record& record) const;

  std::string_view _file;
  std::uint32_t _seed;
  std::size_t _position;
  std::uint64_t _end;
  std::uint32_t _payloadChecksum = 0;
  std::string_view _payload;
  std::size_t _damages = 0;
  bool _isTorn = false;
  bool _endsInZeros = false;
};

}  // namespace kite::Linux
