#include "audible_bench.h"
#include "timing/kept_turns.h"

namespace sonivo::test {
namespace {

using ChainInTheGraphTest = WithChains<AudibleMachineTest>;

// The network has a thread of its own for it.
TEST_F(ChainInTheGraphTest, NoNodeOfOursHoldsTheGraphUpWhileTheNetworkRuns) {
  ASSERT_EQ(sonivo({"setup", "--chain", "ai"}).code, 0);
  const auto voice = speak_into("notebook.microphone");
  start_service();
  const auto recorder = record("heard.wav");
  const auto player = play();
  ASSERT_TRUE(comes_true([&] { return status().has("\"chain\": \"ai\""); })) << status().text;
  KeptTurns turns(server_->remote());
  for (const unsigned quantum : {256u, 1024u}) {
    server_->force("clock.force-quantum", quantum);
    EXPECT_TRUE(turns.in_a_still_second(kRate, quantum)) << quantum << " frames";
  }
}

}  // namespace
}  // namespace sonivo::test
