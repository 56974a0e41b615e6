#include "meridane/io/logging.h"

#include <ctime>
#include <iostream>
#include <mutex>

#include "meridane/error.h"

namespace meridane {
namespace {

struct Sink {
  std::mutex mutex;
  std::function<void(const std::string&)> write = [](const std::string& line) { std::clog << line << '\n'; };
};

Sink& sink() {
  static Sink the_sink;
  return the_sink;
}

}  // namespace

std::atomic<int>& log_threshold() {
  static std::atomic<int> threshold = kLogInfo;
  return threshold;
}

void set_log_sink(std::function<void(const std::string& line)> write) {
  const std::lock_guard lock(sink().mutex);
  sink().write = std::move(write);
}

void log_line(SourceLocation where, const std::string& message) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  const std::string line =
      formatted("%04d/%02d/%02dT%02d:%02d:%02d[%s:%s (%s)]  ", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                local.tm_hour, local.tm_min, local.tm_sec, base_name(where.file_name()).c_str(),
                std::to_string(where.line()).c_str(), qualified_name(where.function_name()).c_str()) +
      message;
  const std::lock_guard lock(sink().mutex);
  sink().write(line);
}

void ProgressReport::report(int done) const {
  log(kLogInfo, [&] { return formatted("%d / %d done", done, all_); });
}

}  // namespace meridane
