#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace sonivo::test {

/// The driver's daemon, running.
class DriverProcess {
 public:
  DriverProcess(const std::string& socket, const std::string& state) {
    std::vector<std::string> words{SONIVO_DRIVER_PROGRAM, "--socket", socket, "--state", state};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    if (::posix_spawn(&id_, SONIVO_DRIVER_PROGRAM, nullptr, nullptr, arguments.data(), environ) != 0) {
      throw std::runtime_error("the driver can't be started");
    }
  }
  ~DriverProcess() { end(SIGTERM); }
  DriverProcess(const DriverProcess&) = delete;
  DriverProcess& operator=(const DriverProcess&) = delete;

  /// Ends it with this signal and waits for its end.
  void end(int signal) {
    if (id_ == 0) return;
    ::kill(id_, SIGCONT);
    ::kill(id_, signal);
    ::waitpid(id_, nullptr, 0);
    id_ = 0;
  }
  /// It does nothing from the return on, but is there.
  void halt() {
    ::kill(id_, SIGSTOP);
    ::waitpid(id_, nullptr, WUNTRACED);
  }
  void go_on() { ::kill(id_, SIGCONT); }

 private:
  pid_t id_ = 0;
};

}  // namespace sonivo::test
