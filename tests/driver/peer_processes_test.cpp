#include "driver/peer_processes.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "driver/listener.h"
#include "raw_client.h"
#include "support/temporary_folder.h"

namespace sonivo::driver {
namespace {

using test::RawClient;

class PeerProcessesTest : public testing::Test {
 protected:
  ~PeerProcessesTest() override { end(); }

  Descriptor connection_of_this_process() {
    ours_.emplace_back(path_);
    return accept();
  }
  Descriptor connection_of_another_process() {
    other_ = ::fork();
    if (other_ == 0) {
      const RawClient client(path_);
      for (;;) ::pause();
    }
    return accept();
  }
  /// Ends the other process.
  void end() {
    if (other_ == 0) return;
    ::kill(other_, SIGKILL);
    ::waitpid(other_, nullptr, 0);
    other_ = 0;
  }

  pid_t other_ = 0;
  PeerProcesses processes_;

 private:
  Descriptor accept() {
    pollfd polled{listener_.number(), POLLIN, 0};
    EXPECT_EQ(::poll(&polled, 1, 10'000), 1);
    return Descriptor(::accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC));
  }

  test::TemporaryFolder home_;
  const std::string path_ = home_ / "driver.sock";
  ListenerPath name_{path_};
  Descriptor listener_{name_.take()};
  std::vector<RawClient> ours_;
};

TEST_F(PeerProcessesTest, AllSocketsOfAProcessAreThatProcess) {
  const Descriptor one = connection_of_this_process();
  const Descriptor two = connection_of_this_process();
  const auto process = processes_.of(one.number(), ::getpid());
  EXPECT_EQ(process->number, ::getpid());
  EXPECT_EQ(processes_.of(two.number(), ::getpid()), process);
}

TEST_F(PeerProcessesTest, TwoProcessesAreTwo) {
  const Descriptor one = connection_of_this_process();
  const Descriptor two = connection_of_another_process();
  const auto process = processes_.of(one.number(), ::getpid());
  const auto other = processes_.of(two.number(), other_);
  EXPECT_NE(process->id, other->id);
  EXPECT_EQ(processes_.of(two.number(), other_), other);
}

TEST_F(PeerProcessesTest, OneWithTheNumberOfAnotherThatEndedIsNotThatOne) {
  const Descriptor one = connection_of_another_process();
  const pid_t number = other_;
  const auto ended = processes_.of(one.number(), number);
  end();
  const Descriptor two = connection_of_this_process();
  const auto successor = processes_.of(two.number(), number);
  EXPECT_NE(successor->id, ended->id);
  EXPECT_EQ(processes_.of(two.number(), number), successor);
}

TEST_F(PeerProcessesTest, OneThatNobodyHoldsIsForgotten) {
  const Descriptor one = connection_of_this_process();
  const ProcessId first = processes_.of(one.number(), ::getpid())->id;
  EXPECT_NE(processes_.of(one.number(), ::getpid())->id, first);
}

TEST_F(PeerProcessesTest, ThoseOfOtherNamespacesCountAsOne) {
  const Descriptor one = connection_of_this_process();
  const auto process = processes_.of(one.number(), 0);
  EXPECT_EQ(processes_.of(one.number(), 0), process);
}

}  // namespace
}  // namespace sonivo::driver
