#pragma once

#include <mutex>

namespace sonivo {

/// A mutex for sections of less than a microsecond. Who finds it taken tries again for about as long before it sleeps:
/// being put to sleep and woken takes ten times what it waits for.
class BriefMutex {
 public:
  void lock() {
    for (int tries = 0; tries < kTries; ++tries) {
      if (mutex_.try_lock()) return;
      __builtin_ia32_pause();
    }
    mutex_.lock();
  }
  bool try_lock() { return mutex_.try_lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  static constexpr int kTries = 100;  // a few microseconds

  std::mutex mutex_;
};

}  // namespace sonivo
