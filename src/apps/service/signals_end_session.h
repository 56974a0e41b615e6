#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace sonivo {

/// Has SIGTERM and SIGINT wait for somebody who asks for them, in the calling thread and those that it starts.
void block_end_signals();

/// SIGTERM and SIGINT, blocked everywhere, end the session for as long as this lives; the process, with exit code 1 and
/// a sentence on standard error, where that takes longer than the limit.
class SignalsEndSession {
 public:
  /// `end_session` is called at each signal: the first may come before there is anybody to be told.
  SignalsEndSession(std::function<void()> end_session, std::chrono::milliseconds limit);
  ~SignalsEndSession();
  SignalsEndSession(const SignalsEndSession&) = delete;
  SignalsEndSession& operator=(const SignalsEndSession&) = delete;

 private:
  void wait();

  const std::function<void()> end_session_;
  const std::chrono::milliseconds limit_;
  std::atomic<bool> over_ = false;
  std::thread thread_;
};

}  // namespace sonivo
