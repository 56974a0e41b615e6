#include "apps/service/host_heartbeat.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "platform/sim/machine.h"
#include "support/scripted_chains.h"

namespace sonivo::test {
namespace {

class HostHeartbeatTest : public testing::Test {
 protected:
  HostHeartbeatTest() { machine_.run_for(500); }  // so as to look between two beats

  /// Beats in so many periods.
  int beats_in(std::uint32_t periods) {
    const int before = beats_;
    machine_.run_for(periods * 1000);
    return beats_ - before;
  }

  sim::SimMachine machine_;
  ScriptedChains chains_;
  std::shared_ptr<HostState> host_ = std::make_shared<HostState>(machine_.seams(), chains_.factory());
  std::atomic<int> beats_ = 0;
  HostHeartbeat heartbeat_{*host_, 1000, [this] { ++beats_; }};
};

TEST_F(HostHeartbeatTest, GoesWithTheRoundsOfSubThread) {
  EXPECT_EQ(beats_in(3), 0);
  ++host_->m_dwSubThreadRounds;
  EXPECT_EQ(beats_in(1), 1);
  EXPECT_EQ(beats_in(3), 0);
  host_->m_dwSubThreadRounds += 5;
  EXPECT_EQ(beats_in(3), 1);
}

TEST_F(HostHeartbeatTest, GoesOnWhileTheThreadsAreStopped) {
  host_->m_bThreadExit = 1;
  EXPECT_EQ(beats_in(3), 3);
  host_->m_bThreadExit = 0;
  EXPECT_EQ(beats_in(3), 0);
}

}  // namespace
}  // namespace sonivo::test
