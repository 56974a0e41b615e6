#include "support/relay_bench.h"

#include <utility>

#include "relay/effect_properties.h"

namespace sonivo::test {
namespace {

std::vector<std::byte> numbered_bytes(std::vector<std::byte> flags, std::uint32_t size) {
  for (std::uint32_t i = 0; i < size; ++i) flags.push_back(static_cast<std::byte>(i + 1));
  return flags;
}

}  // namespace

RelayBench::RelayBench(const sim::Config& config, Notebook notebook)
    : machine(config), relay(std::make_unique<CAudioControl>(machine.seams(), chains.factory())) {
  if (notebook != Notebook::plain) set_notebook(notebook);
  relay->SetMuteWindow(kMuteWindow);
  machine.desktop().set_window_procedure(
      [this](WindowHandle, std::uint32_t, std::uint64_t wParam, const DeviceBroadcast& broadcast) {
        if (relay) relay->OnDeviceChange(static_cast<std::uint32_t>(wParam), &broadcast);
      });
}

RelayBench::~RelayBench() {
  if (relay) stop();
  machine.desktop().set_window_procedure({});
  relay.reset();
}

void RelayBench::start() {
  relay->SetEndpointForce(DataFlow::capture, {});
  relay->SetEndpointForce(DataFlow::render, {});
  relay->Start();
}

void RelayBench::stop() { relay->Stop(); }

void RelayBench::set_notebook(Notebook notebook) {
  switch (notebook) {
    case Notebook::plain:
      relay->SetGenAndFunction(8, 0, 0, 0);
      break;
    case Notebook::key_cancel:
      relay->SetGenAndFunction(8, 0, 2, 1);
      break;
    case Notebook::beam_forming:
      relay->SetGenAndFunction(8, 0, 3, 2);
      break;
    case Notebook::ai_speech:
      relay->SetGenAndFunction(10, 0, 5, 8);
      break;
  }
}

void RelayBench::record(const WAVEFORMATEXTENSIBLE& format, std::vector<std::byte> mic) {
  machine.endpoint(sim::kMicArray).set_source(sim::memory_source(std::move(mic)));
  machine.driver().open_recorder(format);
}

void RelayBench::play(const WAVEFORMATEXTENSIBLE& format, std::vector<std::byte> signal) {
  machine.driver().open_player(format, sim::memory_source(std::move(signal)));
}

void RelayBench::store_key_cancel_parameters(std::uint8_t key, std::uint8_t noise) {
  machine.fx().set_effect(
      sim::kMicArray, PKEY_NVC_MTGMIC_KC_Param,
      numbered_bytes({static_cast<std::byte>(key), static_cast<std::byte>(noise)}, chains.key_cancel->param_size));
}

void RelayBench::store_beam_forming_parameters(std::uint8_t first_flag) {
  machine.fx().set_effect(
      sim::kMicArray, PKEY_NVC_MTGMIC_BF_KC_Param,
      numbered_bytes({static_cast<std::byte>(first_flag), {}, {}}, chains.beam_forming->param_size));
}

}  // namespace sonivo::test
