#include "Linux/Storage/WriteAheadLog.h"

#include "Linux/Storage/PageFormat.h"

#include <functional>
#include <numeric>

namespace kite::Linux {

namespace {

constexpr std::size_t logHeaderSize = 32;
constexpr std::size_t frameHeaderSize = 24;
constexpr std::size_t frameSize = frameHeaderSize + pageSize;
constexpr std::uint32_t magicNumber = 0x377F0682;  // its last bit is the order of bytes in sums

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
  if (_end == 0 || _end == count || isSound(_end - 1)) return;
  // A process that is killed may leave a new frame written halfway over an earlier one.
  const bool isAllBeforeSound = _end == 1 ? isHeaderSound() : isSound(_end - 2);
  if (isAllBeforeSound) --_end;
}

std::vector<WriteAheadLog::Frame> WriteAheadLog::frames() const {
  std::vector<Frame> frames;
  for (std::size_t i = 0; i < _end; ++i)
    if (isCurrent(i))
      frames.push_back({numberAt(frameAt(i), 0), frameAt(i).substr(frameHeaderSize), isSound(i)});
  return frames;
}

bool WriteAheadLog::isBroken() const {
  for (std::size_t i = 0; i < _end; ++i)
    if (!isSound(i)) return true;
  return false;
}

std::string_view WriteAheadLog::frameAt(std::size_t index) const {
  return _bytes.substr(logHeaderSize + index * frameSize, frameSize);
}

std::string_view WriteAheadLog::sumBefore(std::size_t index) const {
  return index == 0 ? _bytes.substr(24, 8) : frameAt(index - 1).substr(16, 8);
}

bool WriteAheadLog::isHeaderSound() const {
  const auto magic = numberAt(_bytes, 0);
  LogSum sum((magic & 1U) != 0, std::string_view("\0\0\0\0\0\0\0\0", 8));
  return (magic & ~1U) == magicNumber && numberAt(_bytes, 8) == pageSize &&
         sum.add(_bytes.substr(0, 24)).is(sumBefore(0));
}

bool WriteAheadLog::isCurrent(std::size_t index) const {
  return differInOneByteAtMost(frameAt(index).substr(8, 8), _salts);
}

bool WriteAheadLog::isSound(std::size_t index) const {
  const auto frame = frameAt(index);
  LogSum sum((numberAt(_bytes, 0) & 1U) != 0, sumBefore(index));
  sum.add(frame.substr(0, 8)).add(frame.substr(frameHeaderSize));
  return frame.substr(8, 8) == _salts && sum.is(frame.substr(16, 8)) &&
         (index != 0 || isHeaderSound());
}

}  // namespace kite::Linux
