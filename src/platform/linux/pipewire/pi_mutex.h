#pragma once

#include <pthread.h>

#include <condition_variable>
#include <stdexcept>

namespace sonivo::pipewire {

/// A mutex that audio threads share with ordinary ones: who holds it runs at the priority of the most urgent thread
/// that waits for it, so that nobody in between holds that one up.
class PiMutex {
 public:
  PiMutex() {
    pthread_mutexattr_t inherits;
    ::pthread_mutexattr_init(&inherits);
    ::pthread_mutexattr_setprotocol(&inherits, PTHREAD_PRIO_INHERIT);
    const int failure = ::pthread_mutex_init(&mutex_, &inherits);
    ::pthread_mutexattr_destroy(&inherits);
    if (failure != 0) throw std::runtime_error("no mutex for audio threads");
  }
  ~PiMutex() { ::pthread_mutex_destroy(&mutex_); }
  PiMutex(const PiMutex&) = delete;
  PiMutex& operator=(const PiMutex&) = delete;

  void lock() { ::pthread_mutex_lock(&mutex_); }
  bool try_lock() { return ::pthread_mutex_trylock(&mutex_) == 0; }
  void unlock() { ::pthread_mutex_unlock(&mutex_); }
  /// Held, and again at the end.
  template <class Condition>
  void wait(std::condition_variable& changed, Condition condition) {
    while (!condition()) ::pthread_cond_wait(changed.native_handle(), &mutex_);
  }

 private:
  pthread_mutex_t mutex_;
};

}  // namespace sonivo::pipewire
