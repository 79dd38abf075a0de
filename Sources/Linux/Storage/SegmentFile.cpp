#include "Linux/Storage/SegmentFile.h"

#include "Linux/Storage/Record.h"

#include <algorithm>
#include <utility>

namespace kite::Linux {

namespace {

using Larder::RowPlace;

constexpr std::uint64_t widestGap = 64 * 1024;  // cheaper to read over than to begin anew

/// The places from the first on that one read covers without much between them.
std::span<const RowPlace> firstRun(std::span<const RowPlace> places) {
  std::size_t count = 1;
  for (; count < places.size(); ++count) {
    const auto end = places[count - 1].offset + places[count - 1].size;
    const auto next = places[count].offset;
    if (next < end || next - end > widestGap) break;
  }
  return places.first(count);
}

}  // namespace

std::optional<std::string> SegmentFile::read(std::span<const RowPlace> places,
                                             const Take& take) const {
  const auto file = this->file();
  std::size_t damaged = 0;
  if (!file && isMissing()) {
    for (const auto& place : places) takeDamaged(place, take, damaged);
    places = {};
  } else if (!file) {
    return error();
  }
  while (!places.empty()) {
    const auto run = firstRun(places);
    if (!readRun(*file, run, take, damaged)) return error();
    places = places.subspan(run.size());
  }
  if (damaged > 0) _tell(damaged);
  return std::nullopt;
}

bool SegmentFile::readRun(const DiskFile& file, std::span<const RowPlace> run, const Take& take,
                          std::size_t& damaged) const {
  const auto begin = run.front().offset;
  const auto bytes = file.read(begin, run.back().offset + run.back().size - begin);
  if (!bytes) return false;
  const auto seed = seedFor(_store);
  for (const auto& place : run) {
    const auto at = std::min<std::size_t>(bytes->size(), place.offset - begin);
    const auto text = soundPayload(std::string_view(*bytes).substr(at, place.size), seed);
    text ? take(text) : takeDamaged(place, take, damaged);
  }
  return true;
}

void SegmentFile::takeDamaged(const RowPlace& place, const Take& take, std::size_t& damaged) const {
  if (_told.with([&](auto& told) { return told.insert(place.offset).second; })) ++damaged;
  take(std::nullopt);
}

bool SegmentFile::isMissing() const {
  const auto names = _disk->names();
  return names && std::ranges::count(*names, _name) == 0;
}

std::shared_ptr<const DiskFile> SegmentFile::file() const {
  auto kept = _kept.copy();
  return kept ? kept : std::shared_ptr<const DiskFile>(_disk->open(_name));
}

void SegmentFile::keepOpen() { _kept.set(file()); }
void SegmentFile::close() { _kept.set(nullptr); }

}  // namespace kite::Linux
