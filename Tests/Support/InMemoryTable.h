#pragma once

#include <Kite/Platform/Larder.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
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
  using List = std::shared_ptr<const Larder::SavedList>;
  using Value = std::variant<Stored, List, double, Data>;  // `Data` is a property list

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
    if (const auto list = find<List>(key)) return arrayOf(**list);
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
  Larder::EditResult edit(std::string_view key, const Larder::ListEdit& edit) {
    const std::scoped_lock guard(_mutex);
    const auto* before = listUnder(key);
    if (!edit.replacesAll && !before) return {Larder::EditOutcome::listIsGone};
    Larder::EditResult result{Larder::EditOutcome::failed};
    if (!_failing) {
      auto list = edited(edit.replacesAll ? Larder::SavedList() : *before, edit, result.placed);
      _values.insert_or_assign(std::string(key), std::make_shared<const Larder::SavedList>(list));
    }
    if (save()) result.outcome = Larder::EditOutcome::saved;
    return result;
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
  void failReads(bool failing) { *_rows = failing ? Rows::unreadable : Rows::sound; }
  void damageRows() { *_rows = Rows::damaged; }
  void placeRowsAt(std::uint64_t offset) { _offset = offset; }
  void restart() {
    const std::scoped_lock guard(_mutex);
    _values = _saved;
    ++_revision;
  }

 private:
  using Values = std::map<std::string, Value, std::less<>>;
  enum class Rows { sound, damaged, unreadable };

  bool save() {
    ++_writes;
    ++_revision;
    if (!_failing) _saved = _values;
    return !_failing;
  }
  /// A file that holds one row.
  class OneRow final : public Larder::RowFile {
   public:
    OneRow(std::string text, std::shared_ptr<const std::atomic<Rows>> rows)
        : _text(std::move(text)), _rows(std::move(rows)) {}
    std::optional<std::string> read(std::span<const Larder::RowPlace> places,
                                    const Take& take) const override {
      const Rows rows = *_rows;
      if (rows == Rows::unreadable) return "Input/output error";
      for ([[maybe_unused]] const auto& place : places)
        rows == Rows::damaged ? take(std::nullopt) : take(_text);
      return std::nullopt;
    }
    const std::string& text() const { return _text; }

   private:
    std::string _text;
    std::shared_ptr<const std::atomic<Rows>> _rows;
  };

  static std::string arrayOf(const Larder::SavedList& list) {
    std::string array;
    for (const auto& row : list.rows)
      array += (array.empty() ? "" : ",") + static_cast<const OneRow&>(*row.place.file).text();
    return "[" + array + "]";
  }
  Larder::SavedList edited(Larder::SavedList list, const Larder::ListEdit& edit,
                           std::vector<Larder::SavedRow>& placed) const {
    for (const auto& range : edit.removed)
      std::erase_if(list.rows, [&](const auto& row) {
        return range.first <= row.ordinal && row.ordinal < range.end;
      });
    for (const auto& row : edit.appended) {
      std::string text;
      row.text->appendTo(text);
      auto file = std::make_shared<OneRow>(std::move(text), _rows);
      placed.push_back({row.ordinal, row.tag, {std::move(file), _offset, 1}});
      list.rows.push_back(placed.back());
      list.next = row.ordinal + 1;
    }
    if (!edit.note.empty()) list.note = edit.note;
    return list;
  }
  const Larder::SavedList* listUnder(std::string_view key) const {
    const auto found = _values.find(key);
    const auto* list = found == _values.end() ? nullptr : std::get_if<List>(&found->second);
    return list ? list->get() : nullptr;
  }

  mutable std::mutex _mutex;
  Values _values;
  Values _saved;
  std::shared_ptr<std::atomic<Rows>> _rows = std::make_shared<std::atomic<Rows>>(Rows::sound);
  std::uint64_t _offset = 0;
  bool _failing = false;
  int _writes = 0;
  std::uint64_t _revision = 0;
};

}  // namespace kite::test
