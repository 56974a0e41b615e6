#include "apps/tool/machine_chain.h"

#include <array>

#include "relay/gates.h"

namespace sonivo::tool {

namespace {

/// Of the chains in their order.
struct MachineNumbers {
  std::uint32_t generation_mic;
  std::uint32_t function_mic;
};
constexpr std::array<MachineNumbers, 4> kMachineNumbers{{{0, 0}, {2, 1}, {3, 2}, {5, 8}}};

}  // namespace

Chain chain_of(std::uint32_t function_mic, std::uint32_t generation_mic) {
  if (GateKeyCancel(function_mic, generation_mic)) return Chain::keycancel;
  if (GateBeamForming(function_mic, generation_mic)) return Chain::beamforming;
  return GateAISpeech(function_mic, generation_mic) ? Chain::ai : Chain::none;
}

Chain driver_chain(DriverConnection& driver) {
  const std::uint32_t function_mic = driver.number(*control::find_setting("function-mic"));
  return chain_of(function_mic, driver.number(*control::find_setting("generation-mic")));
}

// The generation alone changes the chain, so that no third one runs in between, nor none where the disk is full by
// then: each generation goes by another bit of the function, and has it before.
void set_driver_chain(DriverConnection& driver, Chain chain) {
  const MachineNumbers& numbers = kMachineNumbers.at(static_cast<std::size_t>(chain));
  const std::uint32_t former = driver.number(*control::find_setting("function-mic"));
  const std::uint32_t both = former | numbers.function_mic;
  const auto set_function = [&](std::uint32_t value) {
    driver.set_number(control::SetFunctionMic, value, "function-mic");
  };
  if (both != former) set_function(both);
  driver.set_number(control::SetGenerationMic, numbers.generation_mic, "generation-mic");
  if (both != numbers.function_mic) set_function(numbers.function_mic);
}

}  // namespace sonivo::tool
