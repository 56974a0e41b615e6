#include "driver/line_log.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace sonivo::driver {
namespace {

constexpr std::uint64_t kMsPerLine = 1000 / LineLog::kPerSecond;

constexpr std::uint64_t kKindLastsMs = 60'000;
constexpr std::size_t kMostKinds = 64;

std::string without_digits(std::string_view line) {
  std::string kind(line);
  std::erase_if(kind, [](char each) { return each >= '0' && each <= '9'; });
  return kind;
}

bool is_power_of_ten(std::uint64_t number) {
  while (number % 10 == 0) number /= 10;
  return number == 1;
}

}  // namespace

LineLog::LineLog(int file, std::string name, Now now)
    : file_(file), name_(std::move(name)), now_(std::move(now)), filled_at_(now_()) {}

void LineLog::write(std::string_view line) {
  const std::uint64_t number = count(line);
  if (number == 1) return limit(line);
  if (!is_power_of_ten(number)) return;
  limit(std::string(line.substr(0, line.find('\n'))) + " (" + std::to_string(number) + " times by now)\n");
}

std::uint64_t LineLog::count(std::string_view line) {
  const std::uint64_t now = now_();
  std::erase_if(kinds_, [&](const auto& each) { return now - each.second.latest_ms >= kKindLastsMs; });
  std::string name = without_digits(line);
  if (kinds_.size() == kMostKinds && !kinds_.contains(name)) return 1;
  Kind& kind = kinds_[std::move(name)];
  kind.latest_ms = now;
  return ++kind.count;
}

void LineLog::limit(std::string_view line) {
  if (!may_write()) {
    ++dropped_;
    return;
  }
  if (dropped_ != 0 && write_now(std::to_string(dropped_) + " lines were dropped\n")) dropped_ = 0;
  if (dropped_ != 0 || !write_now(line)) {
    ++dropped_;
    return;
  }
  --left_;
}

bool LineLog::may_write() {
  const std::uint64_t lines = (now_() - filled_at_) / kMsPerLine;
  filled_at_ += lines * kMsPerLine;
  left_ = static_cast<int>(std::min<std::uint64_t>(static_cast<std::uint64_t>(left_) + lines, kBurst));
  return left_ > 0;
}

/// A pipe with room takes a line of no more than its page whole; O_NONBLOCK would be that of everyone who has it open.
bool LineLog::has_room() const {
  pollfd polled{file_, POLLOUT, 0};
  return ::poll(&polled, 1, 0) == 1 && (polled.revents & POLLOUT) != 0;
}

bool LineLog::write_now(std::string_view line) {
  std::string text = name_ + ": ";
  text += line;
  if (text.size() > kMaxBytes) {
    text.resize(kMaxBytes);
    text.back() = '\n';
  }
  return has_room() && ::write(file_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace sonivo::driver
