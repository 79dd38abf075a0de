#include "Queue/QueueCommand.h"

#include "Common/CommandFailure.h"
#include "Common/ParseJSON.h"
#include "Common/WriteAll.h"
#include "Common/WriteJSON.h"
#include "Store/OpenStore.h"

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace kite::tool {
namespace {

constexpr const char* queueKey = "kite_pending_events";

struct QueueOptions {
  StoreChoice store;
  bool isSummary = false;
};

void printQueue(const StoreChoice& choice) {
  const auto pending = openStore(choice)->storage()->read(queueKey);
  writeAll(STDOUT_FILENO, pending ? pending->data().bytes : "[]");
}

JSONValue ageOf(const JSONValue& event) {
  const auto* timestamp = event.object() ? event.object()->at("timestamp") : nullptr;
  if (!timestamp) return {};
  const auto seconds = timestamp->real()
                           ? *timestamp->real()
                           : static_cast<double>(timestamp->integer() ? *timestamp->integer() : 0);
  return System::live().now().secondsSince1970 - seconds;
}

// What the application saved with its queue, if it counts its events.
JSONValue savedLedger(const Linux::StoreInspector& store) {
  const auto list = store.keyValues()->readList(queueKey);
  const auto ledger = list ? parseJSON(list->note) : Failure{std::string()};
  return ledger ? *ledger : JSONValue();
}

void printSummary(const StoreChoice& choice) {
  const auto store = openStore(choice);
  const auto pending = store->storage()->read(queueKey);
  const auto events = parseJSON(pending ? pending->data().bytes : "[]");
  if (!events || !events->array()) throw CommandFailure("the stored queue is no JSON array");
  const auto& all = *events->array();
  const JSONValue::Object summary{{"onDisk", static_cast<std::int64_t>(all.size())},
                                  {"oldestAge", all.empty() ? JSONValue() : ageOf(all[0])},
                                  {"ledger", savedLedger(*store)}};
  writeAll(STDOUT_FILENO, toJSON(summary) + "\n");
}

}  // namespace

CLI::App* addQueueCommand(CLI::App& parent) {
  auto* command = parent.add_subcommand(
      "queue", "Print the pending events as one JSON array, exactly as they are stored");
  const auto options = std::make_shared<QueueOptions>();
  addStoreChoice(*command, options->store);
  command->add_flag("--summary", options->isSummary,
                    "Print one object instead: how many there are, how old the oldest is, and what "
                    "became of all others");
  command->callback([options] {
    options->isSummary ? printSummary(options->store) : printQueue(options->store);
  });
  return command;
}

}  // namespace kite::tool
