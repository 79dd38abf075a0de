#include "Linux/Storage/WriteAheadLog.h"

#include "Linux/Storage/PageFormat.h"

#include <functional>
#include <numeric>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::size_t logHeaderSize = 32;
constexpr std::size_t frameHeaderSize = 24;
constexpr std::size_t frameSize = frameHeaderSize + pageSize;
constexpr std::size_t wordsOfFrame = (8 + pageSize) / 4;  // that its sum is of
constexpr std::uint32_t magicNumber = 0x377F0682;  // its last bit is the order of bytes in sums

/// Whether two numbers with this difference can be alike but for one byte.
bool isOfOneByte(std::uint32_t difference) {
  for (int byte = 0; byte < 4; ++byte) {
    const std::uint32_t others = ~(std::uint32_t{0xFF} << 8 * byte);
    if (difference != 0 && ((difference & others) == 0 || (-difference & others) == 0)) return true;
  }
  return false;
}

/// SQLite's checksum, which goes on from frame to frame.
class LogSum {
 public:
  LogSum(bool isBigEndian, std::string_view before)
      : _isBigEndian(isBigEndian), _first(numberAt(before, 0)), _second(numberAt(before, 4)) {}

  LogSum& add(std::string_view bytes) {
    for (std::size_t at = 0; at + 8 <= bytes.size(); at += 8) {
      _first += word(bytes, at) + _second;
      _second += word(bytes, at + 4) + _first;
    }
    return *this;
  }
  bool is(std::string_view bytes) const {
    return numberAt(bytes, 0) == _first && numberAt(bytes, 4) == _second;
  }
  /// Whether one byte is wrong, of `bytes` or among the last `words` that were added.
  ///
  /// A word is added by (x, y) -> (y, x + y + word), and so is an error in one. It is led back
  /// through the words until it is in one of them alone.
  bool isOneByteOff(std::string_view bytes, std::size_t words) const {
    auto x = numberAt(bytes, 0) - _first, y = numberAt(bytes, 4) - _second;
    if (y == 0 && isOfOneByte(x)) return true;
    for (; words > 0; --words) {
      if (x == 0 && isOfOneByte(y)) return true;
      y = std::exchange(x, y - x);
    }
    return false;
  }

 private:
  std::uint32_t word(std::string_view bytes, std::size_t at) const {
    const auto number = numberAt(bytes, at);
    return _isBigEndian ? number : __builtin_bswap32(number);
  }

  bool _isBigEndian;
  std::uint32_t _first, _second;
};

bool differInOneByteAtMost(std::string_view some, std::string_view other) {
  return std::inner_product(some.begin(), some.end(), other.begin(), 0, std::plus<>(),
                            std::not_equal_to<>()) <= 1;
}

LogSum sumOf(std::string_view frame, std::string_view before, bool isBigEndian) {
  return LogSum(isBigEndian, before).add(frame.substr(0, 8)).add(frame.substr(frameHeaderSize));
}

}  // namespace

WriteAheadLog::WriteAheadLog(std::string_view bytes) : _bytes(bytes) {
  if (_bytes.size() < logHeaderSize + frameSize) return;
  _salts = isHeaderSound() ? _bytes.substr(16, 8) : frameAt(0).substr(8, 8);
  findEnd();
}

void WriteAheadLog::findEnd() {
  const auto count = (_bytes.size() - logHeaderSize) / frameSize;
  for (std::size_t i = 0; i < count; ++i)
    if (isCurrent(i)) _end = i + 1;
  while (_firstUnsound < _end && isSound(_firstUnsound)) ++_firstUnsound;
  if (isHeaderSound() && isUnfinishedFrom(_firstUnsound)) _end = _firstUnsound;
}

// A transaction that was cut short, by a kill or by a full disk, may end in a frame written
// halfway, or before those of one that failed earlier and went further.
bool WriteAheadLog::isUnfinishedFrom(std::size_t index) const {
  for (std::size_t i = index; i < _end; ++i)
    if (isOneByteOff(i) || (i > index && isCommit(i))) return false;
  return true;
}

std::vector<WriteAheadLog::Frame> WriteAheadLog::frames() const {
  std::vector<Frame> frames;
  for (std::size_t i = 0; i < _end; ++i)
    if (isCurrent(i))
      frames.push_back({numberAt(frameAt(i), 0), frameAt(i).substr(frameHeaderSize), isSound(i)});
  return frames;
}

bool WriteAheadLog::isBroken() const { return _firstUnsound < _end; }

std::string_view WriteAheadLog::frameAt(std::size_t index) const {
  return _bytes.substr(logHeaderSize + index * frameSize, frameSize);
}

std::string_view WriteAheadLog::sumBefore(std::size_t index) const {
  return index == 0 ? _bytes.substr(24, 8) : frameAt(index - 1).substr(16, 8);
}

bool WriteAheadLog::isBigEndian() const { return (numberAt(_bytes, 0) & 1U) != 0; }

bool WriteAheadLog::isHeaderSound() const {
  const auto magic = numberAt(_bytes, 0);
  LogSum sum(isBigEndian(), std::string_view("\0\0\0\0\0\0\0\0", 8));
  return (magic & ~1U) == magicNumber && numberAt(_bytes, 8) == pageSize &&
         sum.add(_bytes.substr(0, 24)).is(sumBefore(0));
}

bool WriteAheadLog::isCurrent(std::size_t index) const {
  return differInOneByteAtMost(frameAt(index).substr(8, 8), _salts);
}

bool WriteAheadLog::isCommit(std::size_t index) const {
  return isCurrent(index) && numberAt(frameAt(index), 4) != 0;
}

bool WriteAheadLog::isSound(std::size_t index) const {
  const auto frame = frameAt(index);
  return frame.substr(8, 8) == _salts &&
         sumOf(frame, sumBefore(index), isBigEndian()).is(frame.substr(16, 8)) &&
         (index != 0 || isHeaderSound());
}

bool WriteAheadLog::isOneByteOff(std::size_t index) const {
  const auto frame = frameAt(index), sum = frame.substr(16, 8);
  const auto found = sumOf(frame, sumBefore(index), isBigEndian());
  const bool hasSalts = frame.substr(8, 8) == _salts;
  return found.is(sum) ? !hasSalts : hasSalts && found.isOneByteOff(sum, wordsOfFrame);
}

}  // namespace kite::Linux
