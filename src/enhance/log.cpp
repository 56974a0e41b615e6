#include "enhance/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace sonivo {
namespace {

std::atomic<LogHook> log_hook{nullptr};

}  // namespace

void set_log_hook(LogHook hook) { log_hook.store(hook, std::memory_order_release); }

void log_text(LogLevel level, const char* format, ...) {
  const LogHook hook = log_hook.load(std::memory_order_acquire);
  if (hook == nullptr) return;
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  hook(level, text);
}

}  // namespace sonivo
