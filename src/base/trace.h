#pragma once

#include <functional>
#include <string_view>

namespace sonivo {

/// A notice is meant for whoever runs the program, and stands in its log; no audio thread gives one while it streams.
enum class TraceLevel { notice, error, warning, info, debug };

/// printf-style trace of the host and the relay. Writes nothing unless a sink for its level is set; without one it
/// costs a load.
void trace(TraceLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// The few texts that are meant for a debugger; they go to its sink, if there is one.
void output_debug_string(const char* format, ...) __attribute__((format(printf, 1, 2)));

using TraceSink = std::function<void(TraceLevel, std::string_view)>;
using DebugSink = std::function<void(std::string_view)>;

/// Sets where formatted traces go, those of the least level and of those that stand before it, for as long as the
/// object lives; calls may come from any thread. One at a time; the sink must not trace.
class ScopedTraceSink {
 public:
  explicit ScopedTraceSink(TraceSink trace_sink, DebugSink debug_sink = {}, TraceLevel least = TraceLevel::debug);
  ~ScopedTraceSink();
  ScopedTraceSink(const ScopedTraceSink&) = delete;
  ScopedTraceSink& operator=(const ScopedTraceSink&) = delete;
};

}  // namespace sonivo
