// Stored effect properties of any type and size never reach beyond the capacity that a reader states. Input: type of
// the value, capacity (two bytes), then the value.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/sim/machine.h"
#include "relay/effect_properties.h"

namespace {

using namespace sonivo;

constexpr PropertyKey kKey{kKeyCancelFormat, 551};
constexpr std::byte kUntouched{0xA5};
constexpr std::size_t kMargin = 64;

PropertyValue make_value(std::uint8_t type, const std::uint8_t* data, std::size_t size) {
  const auto* bytes = reinterpret_cast<const std::byte*>(data);
  switch (type % 5) {
    case 0:
      return std::monostate{};
    case 1:
      return static_cast<std::uint32_t>(size == 0 ? 0 : data[0]);
    case 2:
      return std::string(reinterpret_cast<const char*>(data), size);
    case 3:
      return std::vector<std::byte>(bytes, bytes + size);
    default:
      return ForeignValue{static_cast<std::uint16_t>(type)};
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static sim::SimMachine& machine = *new sim::SimMachine;
  if (size < 3) return 0;
  std::uint32_t cb = data[1] | static_cast<std::uint32_t>(data[2]) << 8;
  machine.fx().set_effect(sim::kMicArray, kKey, make_value(data[0], data + 3, size - 3));

  const std::size_t capacity = cb * sizeof(char16_t);  // a text is counted in characters
  std::vector<std::byte> buffer(capacity + kMargin, kUntouched);
  const Status status = GetFxCapturePropertiesValue(machine.seams(), kKey, buffer.data(), &cb);
  for (std::size_t i = capacity; i < buffer.size(); ++i) {
    if (buffer[i] != kUntouched) std::abort();
  }
  const bool known = status == kOk || status == static_cast<Status>(error::kMoreData) ||
                     status == static_cast<Status>(error::kNotFound) ||
                     status == static_cast<Status>(error::kInvalidData);
  if (!known) std::abort();
  return 0;
}
