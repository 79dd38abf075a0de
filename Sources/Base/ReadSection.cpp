#include "Base/ReadSection.h"

#include "Base/Guarded.h"
#include "Base/MPSCStack.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <utility>

namespace kite {
namespace {

// Where threads count themselves while they read: a line of the cache for each, until there are
// more threads than places.
struct alignas(64) Place {
  std::atomic<unsigned> readers{0};
};
constinit std::array<Place, 16> places{};
constinit std::atomic<std::size_t> nextPlace{0};

// Trivial, as sections may end in the destructors of other objects of their thread.
struct Thread {
  Place* place;
  unsigned depth;
};
constinit thread_local Thread thread{};

constinit Guarded<Retired*> retired;
constinit std::atomic<bool> isAnyRetired{false};

bool isAnyReading() {
  return std::ranges::any_of(places, [](const Place& place) { return place.readers != 0; });
}

// Sequentially consistent throughout: of a reader that counts itself out and a thread that retires
// an object at that moment, one sees the other and releases it.
void releaseUnread() {
  const Chain<Retired> released(retired.with([](Retired*& first) -> Retired* {
    if (isAnyReading()) return nullptr;
    isAnyRetired = false;
    return std::exchange(first, nullptr);
  }));
}

}  // namespace

ReadSection::ReadSection() {
  if (thread.depth++ > 0) return;
  if (!thread.place) thread.place = &places[nextPlace++ % places.size()];
  ++thread.place->readers;
}

ReadSection::~ReadSection() {
  if (--thread.depth > 0) return;
  --thread.place->readers;
  if (isAnyRetired) releaseUnread();
}

void retire(std::unique_ptr<Retired> object) {
  retired.with([&](Retired*& first) {
    object->next = std::exchange(first, object.get());
    object.release();
    isAnyRetired = true;
  });
  releaseUnread();
}

}  // namespace kite
