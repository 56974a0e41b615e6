#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "graph_profile.h"
#include "pipewire_relay_bench.h"

namespace sonivo::test {
namespace {

/// A machine that is busy with something else lets any program miss turns now and then.
constexpr int kSeconds = 8;

class GraphTimingTest : public PipeWireRelayTest {
 protected:
  using Nodes = std::map<std::string, GraphProfile::Node>;

  /// Whether each node of ours ended every turn of the next second, within a tenth of it on average.
  bool keeps_a_second(GraphProfile& profile, double turn_us) {
    profile.take();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    latest_ = profile.take();
    return std::all_of(kOurs.begin(), kOurs.end(), [&](const char* name) {
      const auto& node = latest_[name];
      const double turns = 1e6 / turn_us;
      return static_cast<double>(node.turns) > 0.9 * turns && node.missed == 0 && node.mean_us() < turn_us / 10;
    });
  }
  void print(unsigned rate, unsigned quantum) {
    for (const char* const name : kOurs) {
      const auto& node = latest_[name];
      std::printf(
          "%5u Hz, %4u frames: %-24s %4llu turns, %llu missed, %llu asleep, %5.1f us of each, %5.1f us at most\n", rate,
          quantum, name, static_cast<unsigned long long>(node.turns), static_cast<unsigned long long>(node.missed),
          static_cast<unsigned long long>(node.asleep), node.mean_us(), 1e-3 * static_cast<double>(node.longest_ns));
    }
  }

  static constexpr std::array kOurs{kVirtualMic, kVirtualSpeaker, "sonivo.microphone", "sonivo.speaker"};
  Nodes latest_;
};

TEST_F(GraphTimingTest, NoNodeOfOursHoldsTheGraphUpWhateverItsTurns) {
  const auto voice = server_->speak_into("notebook.microphone", counting(120));
  const auto recorder = server_->record(kVirtualMic, path("heard.wav"));
  const auto player = server_->play(kVirtualSpeaker, counting(120));
  GraphProfile profile(server_->remote());
  for (const unsigned rate : {48000u, 44100u}) {
    server_->force("clock.force-rate", rate);
    for (const unsigned quantum : {64u, 256u, 480u, 1024u, 2048u}) {
      server_->force("clock.force-quantum", quantum);
      bool kept = false;
      for (int second = 0; second < kSeconds && !kept; ++second) kept = keeps_a_second(profile, 1e6 * quantum / rate);
      print(rate, quantum);
      EXPECT_TRUE(kept) << rate << " Hz, " << quantum << " frames";
    }
  }
}

}  // namespace
}  // namespace sonivo::test
