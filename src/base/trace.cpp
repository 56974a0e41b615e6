#include "base/trace.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

namespace sonivo {
namespace {

constexpr int kNone = -1;

std::atomic<int> least_traced{kNone};  // a TraceLevel
std::atomic<bool> has_debug_sink{false};
std::mutex sink_mutex;
TraceSink trace_sink;
DebugSink debug_sink;

std::string format_text(const char* format, va_list args) {
  va_list measure;
  va_copy(measure, args);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  if (length < 0) return format;
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, args);
  return text;
}

}  // namespace

void trace(TraceLevel level, const char* format, ...) {
  if (static_cast<int>(level) > least_traced.load(std::memory_order_acquire)) return;
  va_list args;
  va_start(args, format);
  const std::string text = format_text(format, args);
  va_end(args);
  const std::lock_guard lock(sink_mutex);
  if (trace_sink) trace_sink(level, text);
}

void output_debug_string(const char* format, ...) {
  if (!has_debug_sink.load(std::memory_order_acquire)) return;
  va_list args;
  va_start(args, format);
  const std::string text = format_text(format, args);
  va_end(args);
  const std::lock_guard lock(sink_mutex);
  if (debug_sink) debug_sink(text);
}

ScopedTraceSink::ScopedTraceSink(TraceSink trace_to, DebugSink debug_to, TraceLevel least) {
  const std::lock_guard lock(sink_mutex);
  trace_sink = std::move(trace_to);
  debug_sink = std::move(debug_to);
  least_traced.store(static_cast<int>(least), std::memory_order_release);
  has_debug_sink.store(debug_sink != nullptr, std::memory_order_release);
}

ScopedTraceSink::~ScopedTraceSink() {
  const std::lock_guard lock(sink_mutex);
  least_traced.store(kNone, std::memory_order_release);
  has_debug_sink.store(false, std::memory_order_release);
  trace_sink = nullptr;
  debug_sink = nullptr;
}

}  // namespace sonivo
