#pragma once

#include <Kite/Platform/Larder.h>

#include "Base/Published.h"
#include "JSON/JSONCoding.h"
#include "JSON/JSONDecoder.h"
#include "JSON/JSONWriter.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace kite {

/// The record under `key`, or null when there is none or it does not decode. The same object until
/// its bytes change.
template <class T>
std::shared_ptr<const T> load(const Larder::Storage& storage, Larder::Key<T> key) {
  auto stored = storage.read(key.name);
  if (!stored) return nullptr;
  const T* record = stored->template decoded<T>([](std::string_view text) {
    const auto json = decodeJSON(text);
    return json ? JSONCoding<T>::decode(*json) : std::optional<T>();
  });
  return record ? std::shared_ptr<const T>(std::move(stored), record) : nullptr;
}

/// What `load` gives, looked up again only after the store has changed. Any thread.
template <class T>
class RememberedRecord {
 public:
  std::shared_ptr<const T> load(const Larder::Storage& storage, Larder::Key<T> key) {
    const auto revision = storage.revision();
    if (const auto known = _known.read(); known && known->revision == revision)
      return known->record;
    auto record = kite::load(storage, key);
    if (record) _known.set(Known{revision, record});
    return record;
  }

 private:
  struct Known {
    std::uint64_t revision;
    std::shared_ptr<const T> record;
  };
  Published<Known> _known;
};

/// Stores the record. One that has no JSON form is silently not stored, and the old one stays.
template <class T>
void save(Larder::Storage& storage, Larder::Key<T> key, const std::type_identity_t<T>& record) {
  std::string text;
  if (appendJSON(text, JSONCoding<T>::encode(record))) return;
  storage.write(key.name, Data{std::move(text)});
}

}  // namespace kite
