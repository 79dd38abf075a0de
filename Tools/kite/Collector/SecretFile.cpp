#include "Collector/SecretFile.h"

#include <fstream>

namespace kite::tool {

CLI::Option* addSecretFile(CLI::App& command, const std::string& option,
                           const std::function<void(const std::string&)>& take,
                           const std::string& description) {
  const auto read = [option, take](const std::string& path) {
    std::ifstream file(path);
    std::string secret;
    if (!std::getline(file, secret) || secret.empty()) {
      throw CLI::ValidationError(option + ": the first line of " + path +
                                 " cannot be read or is empty");
    }
    take(secret);
  };
  return command.add_option_function<std::string>(option, read, description)->type_name("FILE");
}

}  // namespace kite::tool
