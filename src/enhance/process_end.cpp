#include "enhance/process_end.h"

#include <cstdio>
#include <cstdlib>

#include "enhance/log.h"

namespace sonivo {

void end_process(const char* who, const char* why) {
  log_text(LogLevel::error, "%s: %s\n", who, why);
  std::fprintf(stderr, "error: %s: %s\n", who, why);
  std::fflush(nullptr);
  std::quick_exit(EXIT_FAILURE);
}

}  // namespace sonivo
