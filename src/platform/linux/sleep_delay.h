#pragma once

#include <mutex>
#include <utility>

#include "base/descriptor.h"

namespace sonivo::linux {

/// Puts off the machine's sleep for as long as it is held, or until it is let go of by force. Any thread.
class SleepDelay {
 public:
  explicit SleepDelay(Descriptor lock) : lock_(std::move(lock)) {}

  void let_go() {
    const std::scoped_lock lock(mutex_);
    lock_.close();
  }

 private:
  std::mutex mutex_;
  Descriptor lock_;
};

}  // namespace sonivo::linux
