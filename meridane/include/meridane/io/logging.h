#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "meridane/source_location.h"

namespace meridane {

/// Levels in rising order of weight.
enum LogLevel : int { kLogDetail = 0, kLogRegistration = 1, kLogInfo = 2, kLogWarning = 3, kLogError = 4 };

/// Lines of a level below it are dropped before any formatting. At first kLogInfo.
std::atomic<int>& log_threshold();

/// Where lines go, without a line feed; at first to the standard error stream. Not to be changed while others log.
void set_log_sink(std::function<void(const std::string& line)> sink);

/// "YYYY/MM/DDThh:mm:ss[source:line (function)]  message", local time.
void log_line(SourceLocation where, const std::string& message);

template <class MakeMessage>
void log(int level, MakeMessage message, SourceLocation where = SourceLocation::current()) {
  if (level >= log_threshold().load(std::memory_order_relaxed)) log_line(where, message());
}

/// Logs "done / all done" of a long run.
class ProgressReport {
 public:
  explicit ProgressReport(int all) : all_(all) {}
  void report(int done) const;

 private:
  int all_;
};

}  // namespace meridane
