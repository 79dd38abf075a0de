#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kite::Linux {

/// The key that all values of a store are sealed with. Wiped when its last owner goes.
class MasterKey {
 public:
  static constexpr std::size_t size = 32;

  /// Nothing unless there are exactly `size` bytes.
  static std::shared_ptr<const MasterKey> fromBytes(std::string_view bytes);
  /// A new one; null when the machine has no randomness to give.
  static std::shared_ptr<const MasterKey> random();

  ~MasterKey();
  MasterKey(const MasterKey&) = delete;
  MasterKey& operator=(const MasterKey&) = delete;

  std::string_view bytes() const { return {_bytes.data(), _bytes.size()}; }

 private:
  MasterKey() = default;
  std::array<char, size> _bytes{};
};

/// Encrypts `text` with AES-256-GCM, for `name` only: format, nonce, cipher text, tag.
std::optional<std::string> seal(const MasterKey& key, std::string_view name, std::string_view text);

/// Nothing when the bytes were not sealed with this key for this name, or were changed since.
std::optional<std::string> unseal(const MasterKey& key, std::string_view name,
                                  std::string_view sealed);

}  // namespace kite::Linux
