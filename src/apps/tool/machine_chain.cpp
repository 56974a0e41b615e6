#include "apps/tool/machine_chain.h"

#include <algorithm>
#include <array>

#include "apps/tool/failure.h"
#include "relay/gates.h"

namespace sonivo::tool {

namespace {

struct Row {
  MachineChain chain;
  const char* name;
  std::uint32_t generation_mic;
  std::uint32_t function_mic;
};
constexpr std::array<Row, 4> kRows{{
    {MachineChain::none, "none", 0, 0},
    {MachineChain::keycancel, "keycancel", 2, 1},
    {MachineChain::beamforming, "beamforming", 3, 2},
    {MachineChain::ai, "ai", 5, 8},
}};

const Row& row_of(MachineChain chain) { return kRows.at(static_cast<std::size_t>(chain)); }

}  // namespace

const char* chain_name(MachineChain chain) { return row_of(chain).name; }

MachineChain chain_called(const std::string& text) {
  const auto* const row = std::find_if(kRows.begin(), kRows.end(), [&](const Row& each) { return each.name == text; });
  if (row == kRows.end()) throw UsageError("--chain takes none, keycancel, beamforming or ai, not '" + text + "'");
  return row->chain;
}

MachineChain chain_of(std::uint32_t function_mic, std::uint32_t generation_mic) {
  if (GateKeyCancel(function_mic, generation_mic)) return MachineChain::keycancel;
  if (GateBeamForming(function_mic, generation_mic)) return MachineChain::beamforming;
  return GateAISpeech(function_mic, generation_mic) ? MachineChain::ai : MachineChain::none;
}

MachineChain driver_chain(DriverConnection& driver) {
  const std::uint32_t function_mic = driver.number(*control::find_setting("function-mic"));
  return chain_of(function_mic, driver.number(*control::find_setting("generation-mic")));
}

// The generation first: with the function of another chain it calls for none, so that no third one runs in between.
void set_driver_chain(DriverConnection& driver, MachineChain chain) {
  driver.set_number(control::SetGenerationMic, row_of(chain).generation_mic, "generation-mic");
  driver.set_number(control::SetFunctionMic, row_of(chain).function_mic, "function-mic");
}

}  // namespace sonivo::tool
