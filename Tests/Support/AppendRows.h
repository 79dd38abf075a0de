#pragma once

#include <Kite/Platform/Larder.h>

#include <string_view>
#include <utility>
#include <vector>

namespace kite::test {

/// Appends to the list under `key`, which begins with these rows when there is none.
inline bool appendRows(Larder::KVStorage& storage, std::string_view key,
                       std::vector<Larder::Row> rows) {
  Larder::ListEdit edit{.replacesAll = false, .removed = {}, .appended = std::move(rows)};
  auto outcome = storage.edit(key, edit, Larder::Durability::survivesKill).outcome;
  if (outcome == Larder::EditOutcome::listIsGone) {
    edit.replacesAll = true;
    outcome = storage.edit(key, edit, Larder::Durability::survivesKill).outcome;
  }
  return outcome == Larder::EditOutcome::saved;
}

}  // namespace kite::test
