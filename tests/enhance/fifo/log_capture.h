#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "enhance/log.h"

namespace sonivo::test {

/// Keeps all messages while it lives; one at a time.
class LogCapture {
 public:
  using Message = std::pair<LogLevel, std::string>;

  LogCapture() {
    take();
    set_log_hook([](LogLevel level, const char* text) {
      const std::lock_guard lock(mutex_);
      messages_.emplace_back(level, text);
    });
  }
  ~LogCapture() { set_log_hook(nullptr); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The messages so far; they are forgotten.
  std::vector<Message> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(messages_, {});
  }

 private:
  inline static std::mutex mutex_;
  inline static std::vector<Message> messages_;
};

/// As %p writes it.
inline std::string pointer(const void* p) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", p);
  return text;
}

}  // namespace sonivo::test
