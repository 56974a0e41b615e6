#pragma once

#include <string>

#include "apps/service/headphone_report.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/fx_properties.h"
#include "platform/linux/linux_machine.h"
#include "platform/linux/pipewire/audio_parts.h"
#include "platform/linux/pipewire/headphone_watch.h"
#include "platform/linux/pipewire/virtual_pair.h"
#include "platform/linux/real_time.h"
#include "platform/linux/threads.h"

namespace sonivo {

/// The machine that this program runs on: the endpoints of its audio server with the virtual pair among them, the
/// driver that listens at a socket, and the rest of the system.
class OwnMachine {
 public:
  struct Options {
    std::string driver_socket;
    std::string audio_server = {};  ///< name or path; empty: the session's own
    pipewire::FriendlyNames names = {};
    linux::LinuxOptions system = {};
  };
  /// Waits for the session's microphone, five seconds at most. Throws std::runtime_error, with a sentence, when the
  /// audio client or its thread can't be set up.
  explicit OwnMachine(Options options);

  Machine seams() { return machine_.seams(); }
  /// The program shall end, as at the session's end. Any thread.
  void end_session() { machine_.end_session(); }
  /// For threads that the program starts by itself.
  bool grant_real_time(int priority) { return real_time_.grant(priority); }

 private:
  linux::RealTime real_time_;
  linux::ProcessThreads threads_;
  pipewire::AudioParts audio_;
  HeadphoneReport headphones_;
  const pipewire::HeadphoneWatch headphone_watch_;
  linux::ControlBus control_;
  pipewire::VirtualPair bus_;
  linux::ControlFxProperties fx_properties_;
  linux::LinuxMachine machine_;
};

}  // namespace sonivo
