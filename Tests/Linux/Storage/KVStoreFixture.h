#pragma once

#include <Kite/Linux/LinuxPlatform.h>

#include "Support/FakeSystem.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

namespace kite::test {

/// Stores that are opened again and again in a folder that is not there at first.
class KVStoreFixture : public testing::Test {
 protected:
  using Storage = std::shared_ptr<Larder::KVStorage>;

  Storage open() { return Linux::keyValueStorage(folder, system.system()); }
  static std::string text(const Storage& storage, const char* key) {
    const auto value = storage->read(key);
    return value ? value->data().bytes : "absent";
  }
  std::string savedText(const char* key) { return text(open(), key); }

  TemporaryFolder temporary;
  std::filesystem::path folder = temporary.path() / "data/app";
  FakeSystem system;
};

}  // namespace kite::test
