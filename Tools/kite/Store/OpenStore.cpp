#include "Store/OpenStore.h"

#include "Common/CommandFailure.h"

namespace kite::tool {

std::filesystem::path folderOf(const StoreChoice& choice) {
  return choice.state / (choice.secrets ? "secrets" : "app");
}

std::shared_ptr<Linux::StoreInspector> openStore(const StoreChoice& choice) {
  const auto kind = choice.secrets ? Linux::StoreKind::secrets : Linux::StoreKind::keyValues;
  auto store = Linux::inspectStore(folderOf(choice), kind, choice.forWriting);
  if (!store) throw CommandFailure(store.error());
  return *std::move(store);
}

}  // namespace kite::tool
