#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "base/guid.h"
#include "base/status.h"

namespace sonivo {

struct PropertyKey {
  Guid fmtid;
  std::uint32_t pid = 0;

  friend bool operator==(const PropertyKey&, const PropertyKey&) = default;
  friend auto operator<=>(const PropertyKey&, const PropertyKey&) = default;
};

inline constexpr PropertyKey PKEY_Device_FriendlyName{
    {0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}}, 14};

/// A value of a type that nothing here reads, with its type number.
struct ForeignValue {
  std::uint16_t vt = 0;
};

/// Empty, u32, text (UTF-8), blob, or foreign.
using PropertyValue = std::variant<std::monostate, std::uint32_t, std::string, std::vector<std::byte>, ForeignValue>;

class PropertyStore {
 public:
  virtual ~PropertyStore() = default;
  /// A key that was never set reads as an empty value.
  virtual Status value(const PropertyKey& key, PropertyValue& value) = 0;
};

}  // namespace sonivo
