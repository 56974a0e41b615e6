#include "platform/linux/pipewire/dispatcher.h"

#include <pthread.h>

#include <utility>

namespace sonivo::pipewire {

Dispatcher::Dispatcher() : thread_([this] { run(); }) {}

void Dispatcher::post(std::function<void()> call) {
  {
    std::scoped_lock lock(mutex_);
    if (stopped_) return;
    calls_.push_back(std::move(call));
  }
  changed_.notify_one();
}

void Dispatcher::stop() {
  {
    std::scoped_lock lock(mutex_);
    stopped_ = true;
    calls_.clear();
  }
  changed_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void Dispatcher::run() {
  ::pthread_setname_np(::pthread_self(), "audio notices");
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return stopped_ || !calls_.empty(); });
    if (stopped_) return;
    const auto call = std::move(calls_.front());
    calls_.pop_front();
    lock.unlock();
    call();
    lock.lock();
  }
}

}  // namespace sonivo::pipewire
