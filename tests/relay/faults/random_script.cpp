#include "random_script.h"

#include <array>

#include "platform/sim/audio_client.h"
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
    bench_.machine.script().fail(step, sim::kDeviceInvalidated, nth);
  } else {
    bench_.machine.script().before(step, nth, [this] { do_hardware(); });
  }
}

// Safe on any thread, in the middle of any call.
void RandomScript::do_hardware() {
  auto& machine = bench_.machine;
  auto& driver = machine.driver();
  const PinId pin = draw(2) == 0 ? PinId::mic : PinId::speaker;
  const auto format = pcm_format(kRates[draw(2)], kBits[draw(2)], static_cast<std::uint16_t>(1 + draw(4)));
  switch (draw(8)) {
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
      machine.endpoints().set_state(kMics[draw(2)], draw(2) == 0 ? kDeviceUnplugged : kDeviceActive);
      break;
    case 6:
      machine.endpoints().set_state(kSpeakers[draw(2)], draw(2) == 0 ? kDeviceUnplugged : kDeviceActive);
      break;
    default:
      driver.query_remove(pin);
      break;
  }
}

void RandomScript::do_anything() {
  auto& machine = bench_.machine;
  auto& relay = *bench_.relay;
  const DataFlow flow = draw(2) == 0 ? DataFlow::capture : DataFlow::render;
  const auto& ids = flow == DataFlow::capture ? kMics : kSpeakers;
  auto& mic = machine.endpoint(kMics[draw(2)]);
  switch (draw(12)) {
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
      if (draw(4) == 0) {
        relay.Stop();
        machine.run_for(draw(50));
        relay.Start();
      }
      break;
    default:
      do_hardware();
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
