#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Storage/FolderDisk.h"
#include "Linux/Storage/StoreLogs.h"

#include <algorithm>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::uint32_t seedOfState = 0;  // it is read before the store is known

CheckedFile checked(std::string name, std::string_view bytes) {
  const auto head = headOf(bytes);
  CheckedFile file{.name = std::move(name), .records = head ? 1u : 0u};
  RecordScanner records(bytes, head ? seedFor(head->store) : seedOfState, head ? Head::size : 0);
  while (records.next()) {
    ++file.records;
    if (!records.isPayloadSound()) ++file.damaged;
  }
  file.damaged += records.damages();
  file.isCutOff = records.isTorn();
  return file;
}

}  // namespace

Result<std::vector<CheckedFile>, std::string> checkStore(const std::filesystem::path& folder,
                                                         StoreKind kind) {
  const auto name = kind == StoreKind::keyValues ? keyValueStoreName() : secretsStoreName();
  auto place = PrivateFolder::open(folder, /*make=*/false);
  if (!place) return Failure{place.error()};
  FolderDisk disk(std::make_shared<const PrivateFolder>(*std::move(place)), name.prefix,
                  FolderDisk::Access::readOnly);
  auto names = disk.names();
  if (!names) return Failure{folder.string() + ": " + disk.error()};
  std::ranges::sort(*names);
  std::vector<CheckedFile> files;
  for (const auto& file : *names) {
    if (!StoreLogs::isPart(file)) continue;
    const auto log = LogFile::open(disk, file);
    const auto bytes = log ? log->readAll() : std::nullopt;
    if (!bytes) return Failure{name.prefix + file + ": " + disk.error()};
    files.push_back(checked(name.prefix + file, *bytes));
  }
  if (files.empty()) return Failure{folder.string() + ": there is no store"};
  return files;
}

}  // namespace kite::Linux
