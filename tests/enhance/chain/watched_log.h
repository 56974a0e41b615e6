#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "enhance/log.h"

namespace sonivo::test {

/// How long anything may take that comes at once on a machine with nothing else to do.
inline constexpr std::chrono::seconds kPatience{60};

/// Keeps all messages of the AI path while it lives, one at a time, and stops the threads that come to a certain one:
/// so a test decides what happens before what.
class WatchedLog {
 public:
  using Message = std::pair<LogLevel, std::string>;

  WatchedLog() {
    take();
    set_log_hook([](LogLevel level, const char* text) { keep(level, text); });
  }
  ~WatchedLog() {
    let_go();
    set_log_hook(nullptr);
  }
  WatchedLog(const WatchedLog&) = delete;
  WatchedLog& operator=(const WatchedLog&) = delete;

  /// The messages so far; they are forgotten.
  std::vector<Message> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(messages_, {});
  }
  /// The same, texts of that level only.
  std::vector<std::string> take(LogLevel level) {
    std::vector<std::string> texts;
    for (const auto& [of, text] : take()) {
      if (of == level) texts.push_back(text);
    }
    return texts;
  }

  /// From now on threads wait at messages that begin so.
  void hold_at(const std::string& beginning) {
    const std::lock_guard lock(mutex_);
    held_at_ = beginning;
  }
  /// Until a thread waits there. False when none comes.
  bool wait_for_held() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [] { return held_ > 0; });
  }
  /// They go on, and none waits any more.
  void let_go() {
    const std::lock_guard lock(mutex_);
    held_at_.clear();
    changed_.notify_all();
  }

 private:
  static void keep(LogLevel level, const char* text) {
    std::unique_lock lock(mutex_);
    messages_.emplace_back(level, text);
    const auto is_held = [message = messages_.back().second] {
      return !held_at_.empty() && message.starts_with(held_at_);
    };
    if (!is_held()) return;
    ++held_;
    changed_.notify_all();
    changed_.wait(lock, [&] { return !is_held(); });
    --held_;
  }

  inline static std::mutex mutex_;
  inline static std::condition_variable changed_;
  inline static std::vector<Message> messages_;
  inline static std::string held_at_;
  inline static int held_ = 0;
};

}  // namespace sonivo::test
