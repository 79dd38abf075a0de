#include "Linux/Storage/Carver.h"

#include "Linux/Storage/PageFormat.h"
#include "Linux/Storage/WriteAheadLog.h"

#include <algorithm>

namespace kite::Linux {

namespace {

constexpr std::uint32_t schemaPage = 1;
constexpr std::size_t firstFreePagePlace = 32;
constexpr std::size_t leafHeaderSize = 8;
constexpr unsigned char leaf = 0x0D;
constexpr std::size_t linkSize = 4;  // the number of the next page of a row that needs several

// What a form in hostile bytes may claim, over and over, must not cost more than this many
// readings.
constexpr std::uint64_t mostReadings = 16;

/// How many bytes of a row stand in its own page.
std::size_t localSize(std::uint64_t size) {
  constexpr std::size_t most = usablePageSize - 35;
  constexpr std::size_t least = (usablePageSize - 12) * 32 / 255 - 23;
  if (size <= most) return static_cast<std::size_t>(size);
  const auto fitting =
      least + static_cast<std::size_t>((size - least) % (usablePageSize - linkSize));
  return fitting <= most ? fitting : least;
}

}  // namespace

Carver::Carver(std::string_view file, std::string_view log)
    : _size(file.size() + log.size()), _allowance(_size * mostReadings) {
  takeFile(file);
  takeLog(log);
  orderPages();
}

void Carver::takeFile(std::string_view file) {
  std::uint32_t number = 0;
  for (; file.size() >= pageSize; file.remove_prefix(pageSize))
    _pages[++number] = file.substr(0, pageSize);
}

void Carver::takeLog(std::string_view log) {
  for (const auto& frame : WriteAheadLog(log).frames()) {
    if (frame.isSound) {
      _pages[frame.pageNumber] = frame.page;
    } else {
      // Its number may be wrong: it must not hide another page.
      _pages.emplace(frame.pageNumber, frame.page);
      _damagedPages.insert(_damagedPages.begin(), frame.page);
    }
  }
}

// Freed pages still hold what was removed or replaced: they come last.
void Carver::orderPages() {
  const auto free = freePages();
  _order = _damagedPages;
  for (const bool isFreeWanted : {false, true})
    for (const auto& [number, page] : _pages)
      if (number != schemaPage && free.contains(number) == isFreeWanted) _order.push_back(page);
}

std::set<std::uint32_t> Carver::freePages() const {
  std::set<std::uint32_t> free;
  const auto isNew = [&](std::uint32_t number) {
    return _pages.contains(number) && free.insert(number).second;
  };
  const auto first = _pages.find(schemaPage);
  auto next = first == _pages.end() ? 0 : numberAt(first->second, firstFreePagePlace);
  while (isNew(next)) {
    const auto page = _pages.at(next);
    const auto listed = std::min<std::size_t>(numberAt(page, 4), usablePageSize / linkSize - 2);
    for (std::size_t i = 0; i < listed; ++i)
      if (!isNew(numberAt(page, (i + 2) * linkSize))) return free;
    next = numberAt(page, 0);
  }
  return free;
}

void Carver::forEachRow(const Body& body) {
  for (const auto page : _order) visitCells(page, body);
  for (const auto page : _order) visitEveryByte(page, body);
}

void Carver::visitCells(std::string_view page, const Body& body) {
  if (static_cast<unsigned char>(page.front()) != leaf) return;
  const auto end = std::min(leafHeaderSize + 2 * std::size_t{numberAt(page, 3, 2)}, pageSize - 1);
  for (auto at = leafHeaderSize; at < end; at += 2)
    visit(page, numberAt(page, at, 2), /*areEntriesWanted=*/true, body);
}

// An entry that nothing points to any more is out of date; a list's row may be the only one.
void Carver::visitEveryByte(std::string_view page, const Body& body) {
  for (std::size_t at = 0; at < page.size(); ++at)
    visit(page, at, /*areEntriesWanted=*/false, body);
}

void Carver::visit(std::string_view page, std::size_t place, bool areEntriesWanted,
                   const Body& body) {
  if (place >= page.size()) return;
  const auto head = RowHead::read(page.substr(place));
  if (!head || head->size > _size) return;
  const auto rest = page.substr(place + head->length);
  const auto form = RowForm::read(rest.substr(0, localSize(head->size)), head->size);
  if (!form || (!areEntriesWanted && !form->isListRow())) return;
  if (const auto bytes = gather(rest, static_cast<std::size_t>(head->size)))
    body(form->row(*head, *bytes));
}

/// The whole of a row, of which `rest` is what its own page holds, and more.
std::optional<std::string> Carver::gather(std::string_view rest, std::size_t size) {
  const auto local = localSize(size);
  const bool needsMorePages = local < size;
  if (rest.size() < local + (needsMorePages ? linkSize : 0) || _allowance < size)
    return std::nullopt;
  _allowance -= size;
  std::string bytes(rest.substr(0, local));
  bytes.reserve(size);
  for (auto next = needsMorePages ? numberAt(rest, local) : 0; bytes.size() < size;) {
    const auto found = _pages.find(next);
    if (found == _pages.end()) return std::nullopt;
    bytes +=
        found->second.substr(linkSize, std::min(size - bytes.size(), usablePageSize - linkSize));
    next = numberAt(found->second, 0);
  }
  return bytes;
}

}  // namespace kite::Linux
