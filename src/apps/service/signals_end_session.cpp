#include "apps/service/signals_end_session.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace sonivo {
namespace {

sigset_t end_signals() {
  sigset_t ends;
  ::sigemptyset(&ends);
  ::sigaddset(&ends, SIGTERM);
  ::sigaddset(&ends, SIGINT);
  return ends;
}

}  // namespace

void block_end_signals() {
  const sigset_t ends = end_signals();
  ::pthread_sigmask(SIG_BLOCK, &ends, nullptr);
}

SignalsEndSession::SignalsEndSession(std::function<void()> end_session, std::chrono::milliseconds limit)
    : end_session_(std::move(end_session)), limit_(limit), thread_([this] { wait(); }) {}

SignalsEndSession::~SignalsEndSession() {
  over_ = true;
  ::kill(::getpid(), SIGTERM);
  thread_.join();
}

void SignalsEndSession::wait() {
  const sigset_t ends = end_signals();
  int number = 0;
  if (::sigwait(&ends, &number) != 0 || over_) return;
  const auto end = std::chrono::steady_clock::now() + limit_;
  do {
    end_session_();
    const auto left = std::max(std::chrono::nanoseconds{0}, end - std::chrono::steady_clock::now());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    const timespec rest{.tv_sec = seconds.count(), .tv_nsec = (left - seconds).count()};
    if (::sigtimedwait(&ends, nullptr, &rest) < 0 && errno == EAGAIN && !over_) {
      std::fprintf(stderr, "error: the session's threads have not ended within %g s; ending without them\n",
                   std::chrono::duration<double>(limit_).count());
      ::_exit(EXIT_FAILURE);
    }
  } while (!over_);
}

}  // namespace sonivo
