#pragma once

#include <Kite/Platform/Larder.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kite::test {

/// Values by key, as the in-memory stores keep them. Any thread.
///
/// While writes fail, values change for readers only; the next write that succeeds saves them all.
class InMemoryTable {
 public:
  using Stored = std::shared_ptr<const Larder::StoredValue>;
  using Rows = std::vector<Larder::StoredValue::StoredRow>;
  using Value = std::variant<Stored, double, DynamicValue::Dictionary>;

  template <class T>
  std::optional<T> find(std::string_view key) const {
    const std::scoped_lock guard(_mutex);
    const auto found = _values.find(key);
    if (found == _values.end() || !std::holds_alternative<T>(found->second)) return std::nullopt;
    return std::get<T>(found->second);
  }
  bool contains(std::string_view key) const {
    const std::scoped_lock guard(_mutex);
    return _values.find(key) != _values.end();
  }
  std::string text(std::string_view key) const {
    const auto value = find<Stored>(key);
    return value ? (*value)->data().bytes : "";
  }

  std::uint64_t revision() const {
    const std::scoped_lock guard(_mutex);
    return _revision;
  }

  void set(std::string_view key, Value value) {
    const std::scoped_lock guard(_mutex);
    _values.insert_or_assign(std::string(key), std::move(value));
    save();
  }
  void remove(std::string_view key) {
    const std::scoped_lock guard(_mutex);
    if (const auto found = _values.find(key); found != _values.end()) _values.erase(found);
    save();
  }
  Larder::EditOutcome edit(std::string_view key, const Larder::ListEdit& edit) {
    const std::scoped_lock guard(_mutex);
    if (!edit.replacesAll && !rowsUnder(key)) return Larder::EditOutcome::listIsGone;
    if (!_failing) _values.insert_or_assign(std::string(key), edited(key, edit));
    return save() ? Larder::EditOutcome::saved : Larder::EditOutcome::failed;
  }

  /// As an earlier run would have left it; not counted as a write.
  void put(std::string_view key, std::string text) {
    const std::scoped_lock guard(_mutex);
    const auto value = std::make_shared<const Larder::StoredValue>(Data{std::move(text)});
    _values.insert_or_assign(std::string(key), value);
    _saved.insert_or_assign(std::string(key), value);
    ++_revision;
  }
  int writes() const {
    const std::scoped_lock guard(_mutex);
    return _writes;
  }
  void failWrites(bool failing) {
    const std::scoped_lock guard(_mutex);
    _failing = failing;
  }
  void restart() {
    const std::scoped_lock guard(_mutex);
    _values = _saved;
    ++_revision;
  }

 private:
  using Values = std::map<std::string, Value, std::less<>>;

  bool save() {
    ++_writes;
    ++_revision;
    if (!_failing) _saved = _values;
    return !_failing;
  }
  Stored edited(std::string_view key, const Larder::ListEdit& edit) const {
    auto rows = edit.replacesAll ? Rows() : *rowsUnder(key);
    for (const auto& range : edit.removed)
      std::erase_if(rows, [&](const auto& row) {
        return range.first <= row.ordinal && row.ordinal < range.end;
      });
    for (const auto& row : edit.appended) {
      auto& added = rows.emplace_back(Larder::StoredValue::StoredRow{row.ordinal, ""});
      row.segment->appendTo(added.text);
    }
    return std::make_shared<const Larder::StoredValue>(std::move(rows));
  }
  const Rows* rowsUnder(std::string_view key) const {
    const auto found = _values.find(key);
    const auto* value = found == _values.end() ? nullptr : std::get_if<Stored>(&found->second);
    return value ? (*value)->rows() : nullptr;
  }

  mutable std::mutex _mutex;
  Values _values;
  Values _saved;
  bool _failing = false;
  int _writes = 0;
  std::uint64_t _revision = 0;
};

}  // namespace kite::test
