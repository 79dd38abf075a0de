#include <Kite/Platform/System.h>

#include "Base/CatchingBadAlloc.h"
#include "Base/RandomUUIDs.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

namespace kite {
namespace {

Date wallClockTime() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return {std::chrono::duration<double>(sinceEpoch).count()};
}

RandomUUIDs::Seed randomSeed() {
  std::random_device device;
  RandomUUIDs::Seed seed{};
  for (auto& word : seed) word = std::uint64_t{device()} << 32 | device();
  return seed;
}

/// The size of a control character at the front of the text; 0 when there is none. Beyond ASCII
/// they are C1 and whatever ends a line or turns its direction: U+2028 to U+202E, U+2066 to U+2069.
std::size_t controlCharacterSize(std::string_view text) {
  const auto byte = [&](std::size_t place) {
    return place < text.size() ? static_cast<unsigned char>(text[place]) : 0U;
  };
  const auto isBetween = [&](std::size_t place, unsigned first, unsigned last) {
    return byte(place) >= first && byte(place) <= last;
  };
  if (byte(0) < ' ' || byte(0) == 0x7F) return 1;
  if (byte(0) == 0xC2) return isBetween(1, 0x80, 0x9F) ? 2 : 0;
  if (byte(0) != 0xE2) return 0;
  const bool isBreakOrOverride = byte(1) == 0x80 && isBetween(2, 0xA8, 0xAE);
  const bool isIsolate = byte(1) == 0x81 && isBetween(2, 0xA6, 0xA9);
  return isBreakOrOverride || isIsolate ? 3 : 0;
}

/// A message from outside may hold anything; it stays on its line, and a terminal obeys none of it.
void printOneLine(std::string_view line) {
  std::string text;
  text.reserve(line.size() + 1);
  while (!line.empty()) {
    const auto size = controlCharacterSize(line);
    text.push_back(size == 0 ? line.front() : ' ');
    line.remove_prefix(std::max<std::size_t>(size, 1));
  }
  text.push_back('\n');
  std::fwrite(text.data(), 1, text.size(), stderr);
}

/// A line is not worth a failure: the one that finds no memory is left out.
void printToStandardError(std::string_view line) {
  catchingBadAlloc([line] { printOneLine(line); });
}

constinit std::atomic<std::uint64_t> forks{0};

std::uint64_t countForks() {
  [[maybe_unused]] static const int registration =
      pthread_atfork(nullptr, nullptr, [] { forks.fetch_add(1, std::memory_order_relaxed); });
  return forks.load(std::memory_order_relaxed);
}

/// Without a system call, but for the first of a thread and the first after a fork: a forked child
/// has a copy of its parent's generator.
UUID newUUID() {
  struct Generator {
    RandomUUIDs uuids{randomSeed()};
    std::uint64_t forkCount = countForks();
  };
  thread_local Generator generator;
  if (generator.forkCount != countForks()) generator = {};
  return generator.uuids.next();
}

}  // namespace

const System& System::live() {
  static const System& system = *new System{.now = wallClockTime,
                                            .randomUUID = newUUID,
                                            .print = printToStandardError,
                                            .forkCount = countForks};
  return system;  // never destroyed, so that threads that outlive main may still use it
}

}  // namespace kite
