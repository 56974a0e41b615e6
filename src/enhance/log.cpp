#include "enhance/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace sonivo {
namespace {

constexpr LogLevel kNoLevel{0};  // below all that a message may have

std::atomic<LogLevel> log_level{kNoLevel};
std::atomic<LogHook> log_hook{nullptr};

}  // namespace

void set_log_hook(LogHook hook, LogLevel most_detailed) {
  log_level.store(kNoLevel);
  log_hook.store(hook);
  if (hook != nullptr) log_level.store(most_detailed);
}

void log_text(LogLevel level, const char* format, ...) {
  if (level > log_level.load()) return;
  const LogHook hook = log_hook.load();
  if (hook == nullptr) return;  // taken away just now
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  hook(level, text);
}

}  // namespace sonivo
