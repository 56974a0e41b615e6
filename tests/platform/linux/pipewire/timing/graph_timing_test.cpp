#include <gtest/gtest.h>

#include "kept_turns.h"
#include "pipewire_relay_bench.h"

namespace sonivo::test {
namespace {

using GraphTimingTest = PipeWireRelayTest;

TEST_F(GraphTimingTest, NoNodeOfOursHoldsTheGraphUpWhateverItsTurns) {
  const auto voice = server_->speak_into("notebook.microphone", counting(120));
  const auto recorder = server_->record(kVirtualMic, path("heard.wav"));
  const auto player = server_->play(kVirtualSpeaker, counting(120));
  KeptTurns turns(server_->remote());
  for (const unsigned rate : {48000u, 44100u}) {
    server_->force("clock.force-rate", rate);
    for (const unsigned quantum : {64u, 256u, 480u, 1024u, 2048u}) {
      server_->force("clock.force-quantum", quantum);
      EXPECT_TRUE(turns.in_a_still_second(rate, quantum)) << rate << " Hz, " << quantum << " frames";
    }
  }
}

}  // namespace
}  // namespace sonivo::test
