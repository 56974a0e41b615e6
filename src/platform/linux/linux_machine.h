#pragma once

#include <string>

#include "base/thread.h"
#include "platform/linux/clock.h"
#include "platform/linux/events.h"
#include "platform/linux/folders.h"
#include "platform/linux/headless_desktop.h"
#include "platform/linux/logind.h"
#include "platform/linux/power.h"
#include "platform/linux/processes.h"
#include "platform/linux/session.h"
#include "platform/machine.h"

namespace sonivo::linux {

/// What a machine's audio and its driver are reached by.
struct AudioSide {
  DeviceBus& bus;
  Endpoints& endpoints;
  FxProperties& fx_properties;
};

struct LinuxOptions {
  LogindOptions logind = usual_logind();
  std::string user_bus = {};  ///< address; empty: the user's own
  InstalledFolders::Places folders = InstalledFolders::places();
};

/// The machine that the program runs on, without a display; its audio and its threads come from its maker and outlive
/// it.
class LinuxMachine {
 public:
  LinuxMachine(const AudioSide& audio, Threads& threads, LinuxOptions options = {});

  Machine seams();
  /// The program shall end, as at the session's end. Any thread.
  void end_session() { session_.end(); }

 private:
  const AudioSide audio_;
  Threads& threads_;
  MonotonicClock clock_;
  DescriptorEvents events_;
  HeadlessDesktop desktop_;
  LogindSession session_;
  LogindPower power_;
  ProcProcesses processes_;
  InstalledFolders folders_;
  Logind logind_;
};

}  // namespace sonivo::linux
