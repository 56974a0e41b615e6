#pragma once

#include <atomic>

namespace sonivo::sim {

/// Counts its owner in for as long as it lives.
class LiveMark {
 public:
  explicit LiveMark(std::atomic<int>& count) : count_(count) { ++count_; }
  ~LiveMark() { --count_; }
  LiveMark(const LiveMark&) = delete;
  LiveMark& operator=(const LiveMark&) = delete;

 private:
  std::atomic<int>& count_;
};

}  // namespace sonivo::sim
