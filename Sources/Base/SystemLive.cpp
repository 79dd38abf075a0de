#include <Kite/Platform/System.h>

#include "Base/RandomUUIDs.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
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

/// Without a system call. A child process that goes on in a forked copy of a thread shares its
/// generator's state with the parent; the clock's nanoseconds keep their identifiers apart.
UUID newUUID() {
  thread_local RandomUUIDs generator(randomSeed());
  const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
  return generator.next(static_cast<std::uint64_t>(ticks));
}

/// A message from outside may hold anything; it stays on its line, and a terminal obeys none of it.
bool isControlCharacter(char c) { return (c >= 0 && c < ' ') || c == '\x7F'; }

void printToStandardError(std::string_view line) {
  std::string text;
  text.reserve(line.size() + 1);
  std::ranges::replace_copy_if(line, std::back_inserter(text), isControlCharacter, ' ');
  text.push_back('\n');
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

const System& System::live() {
  static const System& system =
      *new System{.now = wallClockTime, .randomUUID = newUUID, .print = printToStandardError};
  return system;  // never destroyed, so that threads that outlive main may still use it
}

}  // namespace kite
