#include "apps/tool/progress.h"

#include <unistd.h>

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <string>
#include <utility>

namespace sonivo::tool {

namespace {

constexpr std::chrono::seconds kPatience{1};
constexpr std::chrono::milliseconds kInterval{100};
constexpr std::uint64_t kWidth = 40;

}  // namespace

Progress::Progress(std::ostream* terminal, std::uint64_t total, Now now)
    : terminal_(terminal),
      total_(std::max<std::uint64_t>(total, 1)),
      now_(std::move(now)),
      next_draw_(now_() + kPatience) {}

Progress::~Progress() {
  if (drawn_) *terminal_ << "\r\033[K" << std::flush;
}

void Progress::update(std::uint64_t done) {
  if (terminal_ == nullptr) return;
  const auto now = now_();
  if (now < next_draw_) return;
  next_draw_ = now + kInterval;
  drawn_ = true;
  done = std::min(done, total_);
  const auto filled = static_cast<std::size_t>(kWidth * done / total_);
  *terminal_ << '\r' << '[' << std::string(filled, '#') << std::string(kWidth - filled, ' ') << "] " << std::setw(3)
             << 100 * done / total_ << " %" << std::flush;
}

std::ostream* progress_terminal(std::ostream& errors) {
  return errors.rdbuf() == std::cerr.rdbuf() && ::isatty(STDERR_FILENO) != 0 ? &errors : nullptr;
}

}  // namespace sonivo::tool
