#include "random_script.h"

#include <array>

#include "platform/client_status.h"
#include "relay/effect_properties.h"

namespace sonivo::test {
namespace {

using sim::PinId;
using sim::Step;

constexpr std::array kSteps{
    Step::bus_interfaces,
    Step::device_probe,
    Step::device_open,
    Step::device_notify_removal,
    Step::device_wait_stream,
    Step::device_transfer,
    Step::device_feedback,
    Step::device_result,
    Step::client_initialize,
    Step::client_set_event,
    Step::client_capture_service,
    Step::client_render_service,
    Step::client_buffer_size,
    Step::client_padding,
    Step::client_start,
    Step::client_stop,
    Step::client_reset,
    Step::client_engine_period,
    Step::capture_get_buffer,
    Step::capture_release_buffer,
    Step::render_get_buffer,
    Step::render_release_buffer,
    Step::endpoint_activate_client,
    Step::volume_level,
    Step::fx_user_value,
    Step::fx_arm,
    Step::volume_set_level,
    Step::audio_class_enter,
    Step::process_session,
    Step::wait_any,
};

// A failed hook of the virtual endpoint ends the thread; a failed mute loses it.
constexpr std::array kDeadlySteps{
    Step::endpoints_list,
    Step::endpoint_activate_volume,
    Step::endpoint_open_properties,
    Step::endpoint_property_value,
    Step::endpoint_id,
    Step::volume_register,
    Step::volume_mute,
    Step::volume_set_mute,
    Step::event_create,
    Step::endpoints_default,
};

constexpr std::array kMics{sim::kMicArray, sim::kHeadsetMic};
constexpr std::array kSpeakers{sim::kSpeakers, sim::kHeadphones};
constexpr std::array kRates{44100u, 48000u};
constexpr std::array<std::uint16_t, 2> kBits{16, 24};

}  // namespace

RandomScript::RandomScript(RelayBench& bench, std::uint64_t seed, bool deadly)
    : bench_(bench), random_(seed), deadly_(deadly) {}

std::uint32_t RandomScript::draw(std::uint32_t count) { return static_cast<std::uint32_t>(random_() % count); }

void RandomScript::run() {
  for (std::uint32_t happenings = 10 + draw(15); happenings > 0; --happenings) {
    bench_.machine.run_for(1 + draw(90));
    if (draw(3) == 0) {
      place_fault();
    } else {
      do_anything();
    }
  }
}

void RandomScript::place_fault() {
  const bool deadly = deadly_ && draw(3) == 0;
  const Step step = deadly ? kDeadlySteps[draw(kDeadlySteps.size())] : kSteps[draw(kSteps.size())];
  const std::uint64_t nth = 1 + draw(20);
  if (draw(2) == 0) {
    bench_.machine.script().fail(step, kDeviceInvalidated, nth);
  } else {
    bench_.machine.script().before(step, nth, [this, seed = random_()] { do_hardware(seed); });
  }
}

// Safe on any thread, in the middle of any call.
void RandomScript::do_hardware(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  const auto pick = [&](std::uint32_t count) { return static_cast<std::uint32_t>(random() % count); };
  auto& machine = bench_.machine;
  auto& driver = machine.driver();
  const PinId pin = pick(2) == 0 ? PinId::mic : PinId::speaker;
  const auto format = pcm_format(kRates[pick(2)], kBits[pick(2)], static_cast<std::uint16_t>(1 + pick(4)));
  switch (pick(12)) {
    case 0:
      driver.surprise_remove(pin);
      break;
    case 1:
      driver.return_device(pin);
      break;
    case 2:
      driver.close_client(pin);
      break;
    case 3:
      driver.open_recorder(format, [](std::span<const std::byte>) {});
      break;
    case 4:
      driver.open_player(format, sim::memory_source({}));
      break;
    case 5:
      machine.endpoints().set_state(kMics[pick(2)], pick(2) == 0 ? kDeviceUnplugged : kDeviceActive);
      break;
    case 6:
      machine.endpoints().set_state(kSpeakers[pick(2)], pick(2) == 0 ? kDeviceUnplugged : kDeviceActive);
      break;
    case 7:
      driver.query_remove(pin);
      break;
    case 8:
      machine.endpoints().set_default(DataFlow::capture, static_cast<Role>(pick(3)), kMics[pick(2)]);
      break;
    case 9:
      machine.endpoint(sim::kVirtualMic).volume().set_mute(pick(2) == 0);
      break;
    case 10:
      bench_.store_beam_forming_parameters(static_cast<std::uint8_t>(pick(4)));
      break;
    default:
      bench_.relay->Stream(DataFlow::capture).RequestRestart();
      break;
  }
}

// What the host changes while audio runs.
void RandomScript::do_setting() {
  auto& relay = *bench_.relay;
  const bool on = draw(2) == 0;
  switch (draw(9)) {
    case 0:
      relay.UpdateKeyCancelState(on);
      break;
    case 1:
      relay.UpdateBeamFormingKeyCancelState(on);
      break;
    case 2:
      relay.UpdateBeamFormingState(on);
      break;
    case 3:
      relay.UpdateAISpeechEnhanceBeamFormingKeyCancelState(on);
      break;
    case 4:
      relay.UpdateAISpeechEnhanceBeamFormingState(on);
      break;
    case 5:
      relay.UpdateAISpeechEnhanceState(on);
      break;
    case 6:
      relay.UpdateAISpeechEnhanceSetAiModelState(on);
      break;
    case 7:
      relay.SetAISpeechEnhanceModelNo(static_cast<std::int32_t>(draw(5)));
      break;
    default:
      relay.CheckDeviceName("Realtek");
      break;
  }
}

void RandomScript::stop_and_start() {
  auto& machine = bench_.machine;
  const std::uint64_t before = machine.scheduler().tick_ms();
  bench_.relay->Stop();
  EXPECT_LE(machine.scheduler().tick_ms() - before, kStopLimitMs);
  machine.run_for(draw(50));
  bench_.relay->Start();
}

void RandomScript::do_anything() {
  auto& machine = bench_.machine;
  auto& relay = *bench_.relay;
  const DataFlow flow = draw(2) == 0 ? DataFlow::capture : DataFlow::render;
  const auto& ids = flow == DataFlow::capture ? kMics : kSpeakers;
  auto& mic = machine.endpoint(kMics[draw(2)]);
  switch (draw(14)) {
    case 0:
      relay.SetEndpoint(flow, draw(3) == 0 ? "" : ids[draw(2)]);
      break;
    case 1:
      machine.endpoints().set_default(flow, static_cast<Role>(draw(3)), ids[draw(2)]);
      break;
    case 2:
      machine.endpoint(sim::kVirtualMic).volume().set_mute(draw(2) == 0);
      break;
    case 3:
      mic.volume().set_mute(draw(2) == 0);
      break;
    case 4:
      relay.SetMuteAction(draw(2) == 0);
      break;
    case 5:
      mic.make_packet_silent(mic.capture_stats().packets + draw(10));
      break;
    case 6:
      mic.make_packet_empty(mic.capture_stats().packets + draw(10));
      break;
    case 7:
      bench_.store_beam_forming_parameters(static_cast<std::uint8_t>(draw(4)));
      break;
    case 8:
      relay.Stream(flow).RequestRestart();
      break;
    case 9:
      machine.session().set_console_session(1 + (draw(4) == 0 ? 1 : 0));
      break;
    case 10:
      if (draw(4) == 0) stop_and_start();
      break;
    case 11:
    case 12:
      do_setting();
      break;
    default:
      do_hardware(random_());
      break;
  }
}

void RandomScript::calm_down() {
  auto& machine = bench_.machine;
  machine.script().clear_faults();
  machine.session().set_console_session(1);
  for (const PinId pin : {PinId::mic, PinId::speaker}) machine.driver().return_device(pin);
  for (const char* id : {sim::kMicArray, sim::kHeadsetMic, sim::kSpeakers, sim::kHeadphones}) {
    machine.endpoints().set_state(id, kDeviceActive);
  }
  machine.driver().open_recorder(pcm_format(48000, 16, 2), [](std::span<const std::byte>) {});
  machine.driver().open_player(pcm_format(48000, 16, 2), sim::memory_source({}));
  bench_.relay->SetEndpointForce(DataFlow::capture, sim::kMicArray);
  bench_.relay->SetEndpointForce(DataFlow::render, sim::kSpeakers);
}

}  // namespace sonivo::test
