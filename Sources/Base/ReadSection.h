#pragma once

#include <memory>

namespace kite {

/// What other threads may still be reading when it has been replaced.
struct Retired {
  virtual ~Retired() = default;
  Retired* next = nullptr;
};

/// While one lives, what its thread reads is not released: a replaced object goes once every thread
/// has been seen outside.
///
/// Threads do not touch each other's cache lines here, and sections within a section cost next to
/// nothing, so a call that reads several records opens one first.
class ReadSection {
 public:
  ReadSection();
  ~ReadSection();
  ReadSection(const ReadSection&) = delete;
  ReadSection& operator=(const ReadSection&) = delete;
};

/// Releases the object, which no new section can reach any more, once nobody can be reading it: at
/// once, or by the thread whose section ends last. Needs no memory.
void retire(std::unique_ptr<Retired> object);

}  // namespace kite
