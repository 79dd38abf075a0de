#include "Store/OpenStore.h"

#include "Common/CommandFailure.h"

#include <CLI/CLI.hpp>

namespace kite::tool {

void addStoreChoice(CLI::App& command, StoreChoice& choice) {
  auto* places = command.add_option_group("place", "Whose stores");
  places->add_option("--state", choice.state, "The state folder of a host")->type_name("DIR");
  places->add_option("--app", choice.application, "The name of an application, in this user's data")
      ->type_name("NAME");
  places->require_option(1);
}

std::filesystem::path folderOf(const StoreChoice& choice) {
  if (!choice.application.empty()) {
    const auto folders = Linux::defaultStoreFolders(choice.application);
    return choice.secrets ? folders.secrets : folders.data;
  }
  return choice.state / (choice.secrets ? "secrets" : "app");
}

std::shared_ptr<Linux::StoreInspector> openStore(const StoreChoice& choice) {
  const auto kind = choice.secrets ? Linux::StoreKind::secrets : Linux::StoreKind::keyValues;
  auto store = Linux::inspectStore(folderOf(choice), kind, choice.forWriting);
  if (!store) throw CommandFailure(store.error());
  return *std::move(store);
}

}  // namespace kite::tool
