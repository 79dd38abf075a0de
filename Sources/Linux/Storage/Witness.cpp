#include "Linux/Storage/Witness.h"

#include "Linux/Storage/Record.h"

#include <string>

namespace kite::Linux {

namespace {

constexpr std::size_t stateSize = 32;
constexpr std::size_t largest = 1024;

std::string bytesOf(const Witness::State& state) {
  std::string bytes;
  for (const auto number : {state.store, state.lastValue, state.lastEdit, state.firstSegment})
    appendNumber(bytes, number, 8);
  return bytes;
}

Witness::State stateFrom(std::string_view bytes) {
  return {.store = numberAt(bytes, 0, 8),
          .lastValue = numberAt(bytes, 8, 8),
          .lastEdit = numberAt(bytes, 16, 8),
          .firstSegment = numberAt(bytes, 24, 8)};
}

// Not the store's own seed: whoever reads this does not know the store yet.
constexpr std::uint32_t seed = 0;

}  // namespace

std::optional<Witness::State> Witness::read(Disk& disk) {
  const auto file = disk.open(fileName);
  const auto bytes = file ? file->read(0, largest) : std::nullopt;
  if (!bytes) return std::nullopt;
  RecordScanner records(*bytes, seed);
  while (const auto record = records.next()) {
    if (record->kind == Record::Kind::head && record->payload.size() == stateSize &&
        records.isPayloadSound())
      return stateFrom(record->payload);
  }
  return std::nullopt;
}

std::unique_ptr<Witness> Witness::make(Disk& disk, const State& state) {
  auto file = disk.make(fileName);
  if (!file) return nullptr;
  std::unique_ptr<Witness> witness(new Witness(std::move(file)));
  witness->set(state);
  return witness;
}

void Witness::set(const State& state) {
  if (_state == state) return;
  std::string text;
  append(text, {.kind = Record::Kind::head, .payload = bytesOf(state)}, seed);
  _file->write(0, text);
  _state = state;
}

}  // namespace kite::Linux
