#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/sim/machine.h"

namespace sonivo::sim {

/// A test on one machine, whose own thread is the windows' thread.
class DesktopBench : public testing::Test {
 protected:
  /// A window that notes its messages and leaves the rest to the machine.
  WindowHandle window(const std::string& class_name = "window", const Rect& place = {100, 100, 200, 200}) {
    return windows.create(class_name, place, [this](const Message& message) {
      seen.push_back(message);
      return windows.default_procedure(message);
    });
  }
  WindowHandle shown_window(const std::string& class_name = "window", const Rect& place = {100, 100, 200, 200}) {
    const WindowHandle handle = window(class_name, place);
    windows.show_at(handle, place, Stacking::topmost);
    pump();
    return handle;
  }
  /// Dispatches all there is, and answers what came since the latest pump.
  std::vector<Message> pump() {
    seen.clear();
    for (Message message; desktop.peek_message(message);) desktop.dispatch_message(message);
    return seen;
  }
  std::vector<std::uint32_t> pump_numbers() {
    std::vector<std::uint32_t> numbers;
    for (const Message& message : pump()) numbers.push_back(message.message);
    return numbers;
  }
  std::uint64_t now_ms() { return machine.scheduler().tick_ms() - 1'000'000; }

  SimMachine machine;
  SimDesktop& desktop = machine.desktop();
  SimWindows& windows = desktop.windows();
  SimForeground& foreground = desktop.foreground();
  SimInput& input = desktop.input();
  Script& script = machine.script();
  std::vector<Message> seen;
};

}  // namespace sonivo::sim
