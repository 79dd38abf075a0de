#include "Linux/Machine/Usher.h"

#include "JSON/JSONDecoder.h"
#include "Linux/Storage/PrivateFolder.h"

#include <mutex>
#include <utility>

namespace kite::Usher {

namespace {

constexpr std::string_view userDefaultsName = "userdefault_id";
constexpr std::string_view keychainName = "keychain_id";
constexpr std::string_view notBackuppableName = "not_backupable_id";
constexpr std::string_view vendorName = "idfv";
constexpr std::string_view advertisingName = "idfa";

Id generated(const System& system) {
  return {system.randomUUID().text(), CreationType::justGenerated};
}

std::optional<Id> read(std::string_view text) {
  const auto uuid = UUID::parse(text);
  return uuid ? std::optional(Id{uuid->text(), CreationType::readFromFile}) : std::nullopt;
}

std::optional<Id> read(const Larder::Storage& storage, Larder::Key<UUID> key) {
  const auto stored = storage.read(key.name);
  const auto json = stored ? decodeJSON(stored->data().bytes) : std::nullopt;
  const auto* text = json ? json->string() : nullptr;
  return text ? read(*text) : std::nullopt;
}

Id readOrMake(Larder::Storage& storage, Larder::Key<UUID> key, const System& system) {
  if (auto id = read(storage, key)) return *std::move(id);
  auto id = generated(system);
  storage.write(key.name, Data{'"' + id.value + '"'});
  return id;
}

// An identifier that cannot be kept is none: it would be another one tomorrow.
std::optional<Id> readOrMakeFile(const std::string& path, const System& system) {
  const std::string name(notBackuppableName);
  constexpr std::size_t longest = 64;
  const auto folder = Linux::PrivateFolder::open(path, /*make=*/true);
  if (!folder) return std::nullopt;
  if (folder->exists(name)) {
    if (folder->fault(name)) return std::nullopt;
    const auto text = Linux::readFile(folder->path() / name, longest);
    if (auto id = text ? read(*text) : std::nullopt) return id;
  }
  auto id = generated(system);
  return folder->replaceFile(name, id.value) ? std::optional(std::move(id)) : std::nullopt;
}

}  // namespace

void Manager::start(UsherDependencies given) {
  Ids kept;
  kept.emplace(userDefaultsName, readOrMake(*given.kvstorage, userDefaultsIdKey, _system));
  {
    const std::scoped_lock monitor(*given.secretsStorage);
    kept.emplace(keychainName, readOrMake(*given.secretsStorage, keychainIdKey, _system));
  }
  if (const auto folder = given.notBackuppableIdFolderProvider())
    if (auto id = readOrMakeFile(*folder, _system))
      kept.emplace(notBackuppableName, *std::move(id));
  // A host that knows these two better says so among its own identifiers.
  auto provided = std::move(given.customIdentifiers);
  provided.emplace(advertisingName, std::move(given.idfaProvider));
  provided.emplace(vendorName, given.identifierForVendorProvider->identifierForVendor);
  std::erase_if(provided,
                [&](const auto& item) { return kept.contains(item.first) || !item.second; });
  _state.set(std::move(kept), std::move(provided));
}

Manager::State::State(Ids known, CustomIdentifiers given)
    : kept(std::move(known)),
      provided(std::move(given)),
      last(Answers{std::make_shared<const Ids>(kept),
                   std::vector<const std::string*>(provided.size())}) {}

// Asks the host for every identifier, once. While each is what it was, nothing is copied.
std::shared_ptr<const Ids> Manager::ids() const {
  const auto state = _state.get();
  const auto last = state->last.read();
  std::shared_ptr<Ids> changed;
  auto known = last->provided.begin();
  for (const auto& [name, provider] : state->provided) {
    const std::string* const before = *known++;
    auto value = provider();
    if (before ? value == *before : !value) continue;
    if (!changed) changed = std::make_shared<Ids>(*last->ids);
    changed->erase(name);
    if (value) changed->emplace(name, Id{*std::move(value)});
  }
  if (!changed) return last->ids;
  Answers answers{changed, {}};
  for (const auto& [name, provider] : state->provided) {
    const auto found = changed->find(name);
    answers.provided.push_back(found == changed->end() ? nullptr : &found->second.value);
  }
  state->last.set(std::move(answers));
  return changed;
}

Id Manager::userDefaultsId() const { return _state->kept.find(userDefaultsName)->second; }
Id Manager::keychainId() const { return _state->kept.find(keychainName)->second; }

}  // namespace kite::Usher
