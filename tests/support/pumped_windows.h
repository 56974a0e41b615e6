#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/desktop.h"

namespace sonivo::test {

/// Tests of windows that note their messages, on any desktop.
class PumpedWindows : public testing::Test {
 protected:
  /// A window that notes its messages and leaves the rest to the desktop.
  WindowHandle window(const std::string& class_name = "window", const Rect& place = {100, 100, 200, 200}) {
    Windows& windows = pumped().windows();
    return windows.create(class_name, place, [this, &windows](const Message& message) {
      seen.push_back(message);
      return windows.default_procedure(message);
    });
  }
  /// Dispatches all there is, and answers what came since the latest pump.
  std::vector<Message> pump() {
    seen.clear();
    for (Message message; pumped().peek_message(message);) pumped().dispatch_message(message);
    return seen;
  }
  std::vector<std::uint32_t> pump_numbers() {
    std::vector<std::uint32_t> numbers;
    for (const Message& message : pump()) numbers.push_back(message.message);
    return numbers;
  }

  std::vector<Message> seen;

 private:
  virtual Desktop& pumped() = 0;
};

}  // namespace sonivo::test
