#pragma once

#include <cstdint>

#include "base/guid.h"
#include "base/status.h"

namespace sonivo {

inline constexpr Guid kIidUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

/// Base of the callback objects that the machine calls.
class IUnknown {
 public:
  virtual Status QueryInterface(const Guid& iid, void** object) = 0;
  virtual std::uint32_t AddRef() = 0;
  virtual std::uint32_t Release() = 0;

 protected:
  ~IUnknown() = default;
};

}  // namespace sonivo
