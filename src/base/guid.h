#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace sonivo {

/// 16-byte identifier in the field layout of the wire formats.
struct Guid {
  std::uint32_t data1 = 0;
  std::uint16_t data2 = 0;
  std::uint16_t data3 = 0;
  std::array<std::uint8_t, 8> data4{};

  friend bool operator==(const Guid&, const Guid&) = default;
  friend auto operator<=>(const Guid&, const Guid&) = default;
};
static_assert(sizeof(Guid) == 16);

/// Lower-case text in braces, "{06b604e5-c78e-4283-bc39-7cb44e727fc3}".
std::string to_text(const Guid& guid);

}  // namespace sonivo
