#pragma once

#include <cstdint>

namespace sonivo {

/// Which processing chain the microphone's generation and function flags call for; at most one holds.
constexpr bool GateKeyCancel(std::uint32_t function_mic, std::uint32_t generation_mic) {
  return (function_mic & 1) != 0 && generation_mic == 2;
}
constexpr bool GateBeamForming(std::uint32_t function_mic, std::uint32_t generation_mic) {
  return (function_mic & 2) != 0 && generation_mic >= 3 && generation_mic < 5;
}
constexpr bool GateAISpeech(std::uint32_t function_mic, std::uint32_t generation_mic) {
  return (function_mic & 8) != 0 && generation_mic >= 5;
}

}  // namespace sonivo
