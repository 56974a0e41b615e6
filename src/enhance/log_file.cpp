#include "enhance/log_file.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "enhance/local_time.h"
#include "enhance/log.h"

namespace sonivo {
namespace {

std::FILE* log_file = nullptr;

const char* label(LogLevel level) {
  switch (level) {
    case LogLevel::info0:
      return "INFO0";
    case LogLevel::error:
      return "ERROR";
    case LogLevel::warning:
      return "WARN ";
    case LogLevel::info1:
      return "INFO1";
    case LogLevel::info2:
      return "INFO2";
    case LogLevel::info3:
      return "INFO3";
    case LogLevel::debug:
      break;
  }
  return "DEBUG";
}

void write_line(LogLevel level, const char* text) {
  const LocalTime now = LocalTime::now();
  std::fprintf(log_file, "[%04d/%02d/%02d %02d:%02d:%02d.%03d] [%s] %s", now.year, now.month, now.day, now.hour,
               now.minute, now.second, now.millisecond, label(level), text);
  std::fflush(log_file);
}

}  // namespace

void log_open() {
  log_close();
  const char* const level = std::getenv("AI_SPEECH_ENHANCE_LOG_LEVEL");
  const int number = level == nullptr ? 0 : std::atoi(level);
  if (number == 0) return;
  const char* const folder = std::getenv("AI_SPEECH_ENHANCE_LOG_DIR");
  std::string path = folder == nullptr ? "" : std::string(folder) + "/";
  path.append("AISpeechEnhance_").append(LocalTime::now().for_file_name().data()).append(".log");
  log_file = std::fopen(path.c_str(), "w");
  if (log_file != nullptr) set_log_hook(write_line, LogLevel{number});
}

void log_close() {
  if (log_file == nullptr) return;
  set_log_hook(nullptr);
  std::fclose(log_file);
  log_file = nullptr;
}

}  // namespace sonivo
