#pragma once

#include <string>

#include "platform/linux/clock.h"
#include "platform/linux/events.h"
#include "platform/linux/folders.h"
#include "platform/linux/headless_desktop.h"
#include "platform/linux/logind.h"
#include "platform/linux/power.h"
#include "platform/linux/processes.h"
#include "platform/linux/real_time.h"
#include "platform/linux/session.h"
#include "platform/linux/threads.h"
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

/// The machine that the program runs on, without a display; its audio comes from its maker and outlives it.
class LinuxMachine {
 public:
  explicit LinuxMachine(const AudioSide& audio, LinuxOptions options = {});

  Machine seams();
  /// The program shall end, as at the session's end. Any thread.
  void end_session() { session_.end(); }
  /// For threads that the program starts by itself.
  bool grant_real_time(int priority) { return real_time_.grant(priority); }

 private:
  const AudioSide audio_;
  RealTime real_time_;
  MonotonicClock clock_;
  DescriptorEvents events_;
  ProcessThreads threads_;
  HeadlessDesktop desktop_;
  LogindSession session_;
  LogindPower power_;
  ProcProcesses processes_;
  InstalledFolders folders_;
  Logind logind_;
};

}  // namespace sonivo::linux
