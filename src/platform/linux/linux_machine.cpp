#include "platform/linux/linux_machine.h"

#include <utility>

#include "platform/linux/screen_saver.h"

namespace sonivo::linux {

LinuxMachine::LinuxMachine(const AudioSide& audio, Threads& threads, LinuxOptions options)
    : audio_(audio),
      threads_(threads),
      session_(desktop_.state()),
      power_(desktop_.state(),
             {.require_display = [address = options.user_bus] { return simulate_user_activity(address); }}),
      processes_([this](pid_t process) { return session_.of_process(process); }),
      folders_(std::move(options.folders)),
      logind_(std::move(options.logind),
              {.changed =
                   [this](const SessionState& state) {
                     session_.set(state);
                     power_.set_idle(state.idle);
                   },
               .suspends = [this](const std::shared_ptr<SleepDelay>& delay) { power_.suspend(delay); },
               .resumed = [this] { power_.resume(); }}) {}

Machine LinuxMachine::seams() {
  return {.clock = clock_,
          .events = events_,
          .threads = threads_,
          .bus = audio_.bus,
          .endpoints = audio_.endpoints,
          .fx_properties = audio_.fx_properties,
          .session = session_,
          .power = power_,
          .desktop = desktop_,
          .processes = processes_,
          .folders = folders_};
}

}  // namespace sonivo::linux
