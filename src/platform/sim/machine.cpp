#include "platform/sim/machine.h"

#include <utility>

namespace sonivo::sim {
namespace {

constexpr const char* kNotebookEndpoints[][2] = {
    {kVirtualMic, "Microphone (Norvell Audio Relay)"},
    {kMicArray, "Microphone Array (Realtek High Definition Audio)"},
    {kHeadsetMic, "Headset Microphone (USB Headset)"},
    {kVirtualSpeaker, "Speakers (Norvell Audio Relay)"},
    {kSpeakers, "Speakers (Realtek High Definition Audio)"},
    {kHeadphones, "Headphones (USB Headset)"},
};

bool is_capture(const std::string& id) { return id.starts_with("{0.0.1."); }
bool is_virtual(const std::string& id) { return id == kVirtualMic || id == kVirtualSpeaker; }
std::string guid_part(const std::string& id) { return id.substr(id.find(".{") + 1); }

}  // namespace

SimMachine::SimMachine(const Config& config)
    : scheduler_(script_, config.schedule),
      desktop_(scheduler_, script_),
      session_(desktop_.model()),
      power_(desktop_.model()),
      processes_(scheduler_, script_, session_),
      folders_(config.folder),
      driver_(scheduler_, script_, desktop_, config.pins, config.echo_filter),
      endpoints_(scheduler_, script_),
      fx_(scheduler_, script_, config.fx_user_store) {
  for (const auto& [id, name] : kNotebookEndpoints) {
    endpoints_.add({.id = id,
                    .name = name,
                    .flow = is_capture(id) ? DataFlow::capture : DataFlow::render,
                    .rate_hz = config.rate_hz,
                    .period = is_virtual(id) ? config.pins.virtual_period : config.hardware_period});
    fx_.set_endpoint_guid(id, guid_part(id));
  }
  endpoints_.set_default(DataFlow::capture, kMicArray);
  endpoints_.set_default(DataFlow::render, kSpeakers);
}

SimMachine::~SimMachine() { scheduler_.shut_down(); }

Machine SimMachine::seams() {
  return {.clock = scheduler_,
          .events = scheduler_,
          .threads = scheduler_,
          .bus = driver_,
          .endpoints = endpoints_,
          .fx_properties = fx_,
          .session = session_,
          .power = power_,
          .desktop = desktop_,
          .processes = processes_,
          .folders = folders_};
}

void SimMachine::after(std::uint32_t ms, std::function<void()> action) {
  std::scoped_lock lock(scheduler_.mutex());
  scheduler_.at(scheduler_.now() + ms * kMillisecond,
                [this, action = std::move(action)] { scheduler_.post_to_system(action); });
}

Leaks SimMachine::leaks() {
  const LiveObjects& live = endpoints_.live();
  const auto count = [](const std::atomic<int>& number) { return static_cast<std::size_t>(number.load()); };
  return {.device_handles = driver_.handles().open(),
          .filter_handles = driver_.echo_filter().open_handles(),
          .control_handles = driver_.control().open_handles(),
          .action_notices = driver_.control().action_notices(),
          .removal_notices = driver_.removal_notices(),
          .pending_requests = driver_.pending_requests() + driver_.control().pending_requests(),
          .audio_clients = count(live.clients),
          .audio_services = count(live.services),
          .volumes = count(live.volumes),
          .property_stores = count(live.stores),
          .registered_callbacks = endpoints_.registered_callbacks(),
          .fx_objects = fx_.live_objects(),
          .session_registrations = session_.registrations(),
          .power_registrations = power_.registrations(),
          .windows = desktop_.windows().live_windows(),
          .timers = desktop_.windows().live_timers(),
          .hooks = desktop_.input().live_hooks(),
          .attached_inputs = desktop_.foreground().attached_inputs(),
          .bitmaps = desktop_.painting().live_bitmaps(),
          .painters = desktop_.painting().live_painters(),
          .process_handles = processes_.live_handles(),
          .events = scheduler_.live_events(),
          .threads = scheduler_.live_threads()};
}

}  // namespace sonivo::sim
