#pragma once

#include "EndToEnd/Host.h"

#include <optional>
#include <string>

namespace kite::test {

/// A store of an application, as `kite store` shows it. While a host runs, it can only be read.
class StoredValues {
 public:
  /// The store that goes with the application.
  static StoredValues ofApp(const Application& application) { return {application, {}}; }
  /// The store that outlives the application.
  static StoredValues ofSecrets(const Application& application) {
    return {application, {"--secrets"}};
  }

  /// The text or bytes under a key.
  std::optional<std::string> get(const std::string& key) const {
    const auto result = command({"get", key});
    return result.status == 0 ? std::optional(result.output) : std::nullopt;
  }
  Finished tryPut(const std::string& key, const std::string& bytes, const std::string& form) const {
    return command({"put", key, writeFile(_file, bytes), "--as", form});
  }
  void put(const std::string& key, const std::string& bytes, const std::string& form) const {
    const auto result = tryPut(key, bytes, form);
    EXPECT_EQ(result.status, 0) << result.errors;
  }
  void remove(const std::string& key) const { EXPECT_EQ(command({"delete", key}).status, 0); }

 private:
  StoredValues(const Application& application, const Arguments& which)
      : _options{"store", "--state", application.state}, _file(application.folder / "value") {
    _options.insert(_options.end(), which.begin(), which.end());
  }

  Finished command(const Arguments& action) const {
    auto arguments = _options;
    arguments.insert(arguments.end(), action.begin(), action.end());
    return run(arguments);
  }

  Arguments _options;
  std::string _file;
};

}  // namespace kite::test
