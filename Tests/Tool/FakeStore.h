#pragma once

#include "Collector/Store/EventStore.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace kite::test {

/// What fake stores keep; several may share it, as those of one database do. The hooks are called
/// on the thread of the operation, at its begin; what they throw, the operation throws.
struct FakeDatabase {
  std::function<void(const tool::Accepted&)> onStore = nullptr;
  std::function<void()> onRecord = nullptr;

  std::mutex mutex;
  std::set<std::string> requests;            // guarded by mutex
  std::map<std::string, int> events;         // how often each came again, guarded by mutex
  std::vector<tool::RequestRecord> records;  // guarded by mutex
};

class FakeStore final : public tool::EventStore {
 public:
  explicit FakeStore(std::shared_ptr<FakeDatabase> database) : _database(std::move(database)) {}

  bool hasSeen(const std::string& requestID) override {
    const std::scoped_lock lock(_database->mutex);
    return _database->requests.contains(requestID);
  }

  tool::Stored store(const tool::Accepted& accepted, double) override {
    if (_database->onStore) _database->onStore(accepted);
    const std::scoped_lock lock(_database->mutex);
    tool::Stored stored;
    stored.isReplay = !_database->requests.insert(accepted.sender.requestID).second;
    if (stored.isReplay) return stored;
    for (const tool::ReceivedEvent& event : accepted.batch.events) {
      const auto [found, isNew] = _database->events.try_emplace(event.id, 0);
      if (!isNew) ++found->second;
      ++(isNew ? stored.newEvents : stored.duplicates);
    }
    return stored;
  }

  void remember(const tool::Sender& sender, const tool::Refusal&, double) override {
    const std::scoped_lock lock(_database->mutex);
    _database->requests.insert(sender.requestID);
  }

  void record(const tool::RequestRecord& request, std::string_view) override {
    if (_database->onRecord) _database->onRecord();
    const std::scoped_lock lock(_database->mutex);
    _database->records.push_back(request);
  }

  std::int64_t clear() override { return 0; }

 private:
  std::shared_ptr<FakeDatabase> _database;
};

}  // namespace kite::test
