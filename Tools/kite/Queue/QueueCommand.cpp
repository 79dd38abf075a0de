#include "Queue/QueueCommand.h"

#include "Common/WriteAll.h"
#include "Store/OpenStore.h"

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

namespace kite::tool {
namespace {

void printQueue(const std::string& state) {
  const auto store = openStore({.state = state});
  const auto pending = store->storage()->read("kite_pending_events");
  writeAll(STDOUT_FILENO, pending ? pending->data().bytes : "[]");
}

}  // namespace

CLI::App* addQueueCommand(CLI::App& parent) {
  auto* command = parent.add_subcommand(
      "queue", "Print the pending events as one JSON array, exactly as they are stored");
  const auto state = std::make_shared<std::string>();
  command->add_option("--state", *state, "The host's state folder")->type_name("DIR")->required();
  command->callback([state] { printQueue(*state); });
  return command;
}

}  // namespace kite::tool
