#pragma once

#include <cstdint>
#include <string>

#include "platform/sim/machine.h"
#include "support/pumped_windows.h"

namespace sonivo::sim {

/// A test on one machine, whose own thread is the windows' thread.
class DesktopBench : public test::PumpedWindows {
 protected:
  WindowHandle shown_window(const std::string& class_name = "window", const Rect& place = {100, 100, 200, 200}) {
    const WindowHandle handle = window(class_name, place);
    windows.show_at(handle, place, Stacking::topmost);
    pump();
    return handle;
  }
  std::uint64_t now_ms() { return machine.scheduler().tick_ms() - 1'000'000; }

  SimMachine machine;
  SimDesktop& desktop = machine.desktop();
  SimWindows& windows = desktop.windows();
  SimForeground& foreground = desktop.foreground();
  SimInput& input = desktop.input();
  Script& script = machine.script();

 private:
  Desktop& pumped() override { return desktop; }
};

}  // namespace sonivo::sim
