#include "support/trace_log.h"

#include <algorithm>
#include <array>

namespace sonivo::test {

std::size_t TraceLog::count_in(const Texts& texts, std::string_view text) const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), text));
}

std::vector<std::string> TraceLog::states(std::string_view prefix) const {
  constexpr std::array kNames{"eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming", "ePhysicalStreaming"};
  std::vector<std::string> found;
  for (const std::string& text : traces()) {
    for (const char* name : kNames) {
      if (text == std::string(prefix) + " " + name + "\n") found.emplace_back(name);
    }
  }
  return found;
}

}  // namespace sonivo::test
