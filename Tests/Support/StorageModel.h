#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {

/// What an event storage should hold and have written: texts of events in place of events, the
/// empty text for one that does not encode.
struct StorageModel {
  struct Entry {
    std::string id;
    std::string text;
  };
  using Entries = std::vector<Entry>;

  Entries pending;
  std::optional<Entries> saved;
  std::deque<std::function<void()>> queue;
  std::vector<std::function<void()>> submitted;
  bool isInBackground = false;
  bool isDiskFull = false;
  bool isDirty = false;
  bool isWriteDue = false;
  int writes = 0;

  void write() {
    isDirty = false;
    if (std::ranges::any_of(pending, &std::string::empty, &Entry::text)) return;
    ++writes;
    isWriteDue = isDiskFull;
    if (!isDiskFull) saved = pending;
  }
  void changed() {
    isDirty = true;
    if (isInBackground) write();
  }
  void insert(const Entry& entry) {
    submit([this, entry] { pending.push_back(entry); });
  }
  void remove(const std::set<std::string>& ids) {
    submit([this, ids] {
      std::erase_if(pending, [&](const Entry& entry) { return ids.contains(entry.id); });
    });
  }
  /// One turn on the queue makes all changes that were submitted by then.
  void submit(std::function<void()> change) {
    submitted.push_back(std::move(change));
    if (submitted.size() == 1) queue.emplace_back([this] { makeChanges(); });
  }
  void makeChanges() {
    for (const auto& change : submitted) {
      change();
      changed();
    }
    submitted.clear();
  }
  void endSession() {
    queue.emplace_back([this] {
      makeChanges();
      write();
    });
  }
  void tick() {
    if (isDirty || isWriteDue) endSession();
  }
  void runOne() {
    if (queue.empty()) return;
    queue.front()();
    queue.pop_front();
  }
  void restart() {
    queue.clear();
    submitted.clear();
    pending = saved.value_or(Entries());
    isDirty = isWriteDue = false;
  }

  std::string savedText() const {
    std::string text;
    for (const auto& entry : saved.value_or(Entries()))
      text += (text.empty() ? "" : ",") + entry.text;
    return saved ? "[" + text + "]" : "";
  }
};

}  // namespace kite::test
