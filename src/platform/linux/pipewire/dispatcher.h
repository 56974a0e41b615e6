#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace sonivo::pipewire {

/// The thread on which clients are told what happened, one call after the other. The loop never calls a client itself:
/// a client may come back with an operation that needs the loop.
class Dispatcher {
 public:
  Dispatcher();
  ~Dispatcher() { stop(); }
  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  /// Any thread.
  void post(std::function<void()> call);
  /// Waits for the call under way; those that are still to come are dropped, also later ones.
  void stop();
  bool on_own_thread() const { return std::this_thread::get_id() == thread_.get_id(); }

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> calls_;
  bool stopped_ = false;
  std::thread thread_;
};

}  // namespace sonivo::pipewire
