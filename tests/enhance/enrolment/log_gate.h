#pragma once

#include <atomic>
#include <cstring>
#include <string>

#include "enhance/log.h"

namespace sonivo::test {

/// Holds the thread that writes a line with this text to the log until it is opened. One at a time.
class LogGate {
 public:
  explicit LogGate(const char* text) {
    text_ = text;
    is_reached_ = is_open_ = false;
    set_log_hook(
        [](LogLevel, const char* line) {
          if (std::strstr(line, text_) == nullptr) return;
          is_reached_ = true;
          is_reached_.notify_all();
          is_open_.wait(false);
        },
        LogLevel::info2);
  }
  ~LogGate() {
    open();
    set_log_hook(nullptr);
  }
  LogGate(const LogGate&) = delete;
  LogGate& operator=(const LogGate&) = delete;

  void wait_until_reached() const { is_reached_.wait(false); }
  void open() {
    is_open_ = true;
    is_open_.notify_all();
  }

 private:
  inline static const char* text_ = nullptr;
  inline static std::atomic<bool> is_reached_{false};
  inline static std::atomic<bool> is_open_{false};
};

}  // namespace sonivo::test
