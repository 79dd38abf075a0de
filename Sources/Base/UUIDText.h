#pragma once

#include <Kite/Base/UUID.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace kite {

/// What `UUID::text` gives, without memory of its own being asked for.
class UUIDText {
 public:
  static constexpr std::size_t length = 36;

  explicit UUIDText(const UUID& uuid);

  std::string_view view() const { return {_text.data(), _text.size()}; }

 private:
  std::array<char, length> _text;
};

}  // namespace kite
