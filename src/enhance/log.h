#pragma once

namespace sonivo {

/// Levels of the AI path's log; a message counts as more detailed the higher its number.
enum class LogLevel : int {
  info0 = 999,     ///< life cycle
  error = 1000,    ///< failures
  warning = 2000,  ///< overflow, underrun, busy
  info1 = 3000,    ///< other operations
  info2 = 3100,    ///< steps of an implementation
  info3 = 3200,    ///< operations of the FIFOs
  debug = 4000,    ///< inner loops
};

/// Takes each message, from any thread, which may hold locks of its own. It must not log.
using LogHook = void (*)(LogLevel level, const char* text);

/// Where messages go, up to and with those of most_detailed; null, as at the start: nowhere. While it is changed, a
/// message of another thread may go to either hook.
void set_log_hook(LogHook hook, LogLevel most_detailed = LogLevel::debug);

/// printf-style; a message brings its own line feed. One that nobody wants costs a comparison. Allocates nothing: a
/// message ends after 511 bytes.
void log_text(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace sonivo
