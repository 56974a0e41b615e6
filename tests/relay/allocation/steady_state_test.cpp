#include <cstdlib>
#include <memory>

#include "count_allocations.h"
#include "platform/sim/machine.h"
#include "relay/audio_control.h"
#include "relay/effect_properties.h"
#include "support/scripted_chains.h"

namespace sonivo::test {
namespace {

TEST(TheCounter, SeesEveryWayToAllocate) {
  const std::uint64_t before = allocations();
  auto object = std::make_unique<int>(1);
  void* volatile block = std::malloc(10);
  block = std::realloc(block, 1000);
  void* volatile cleared = std::calloc(2, 10);
  EXPECT_EQ(allocations() - before, 4u);
  std::free(block);
  std::free(cleared);
}

/// A first chain that passes its blocks.
class PassingChain final : public KeyCancelChain {
 public:
  int GetVersion(std::uint16_t*, std::uint16_t*) override { return 0; }
  int GetParamSize(std::uint32_t* size) override {
    *size = 0;
    return 0;
  }
  int SetDataLength(std::uint16_t frames) override {
    frames_ = frames;
    return 0;
  }
  int GetDataLength(std::uint16_t* frames) override {
    *frames = frames_;
    return 0;
  }
  int SetSamplingRate(float) override { return 0; }
  int SetChannel(std::uint16_t) override { return 0; }
  int SetKeyReductionActive(std::uint16_t) override { return 0; }
  int SetNoiseReductionActive(std::uint16_t) override { return 0; }
  int Execute(float*) override {
    ++executed;
    return 0;
  }
  int Close() override { return 0; }
  int Open(const void*, float, std::uint16_t, std::uint16_t) override { return 0; }

  static inline std::uint64_t executed = 0;

 private:
  std::uint16_t frames_ = 0;
};

Chains make_passing_chains() {
  Chains chains = MakeChains();
  chains.key_cancel = std::make_unique<PassingChain>();
  return chains;
}

/// A minute of both directions after a few seconds of warm-up, in virtual time. The applications and the endpoints take
/// and give their audio without memory of their own, so that whatever is counted was allocated by a step of the relay
/// or by the machine under it.
class AMinuteOfAudio : public ::testing::TestWithParam<std::uint16_t> {};

TEST_P(AMinuteOfAudio, AllocatesNothing) {
  const auto format = pcm_format(48000, GetParam(), 2);
  const auto silence = [](std::span<std::byte> frames) { std::fill(frames.begin(), frames.end(), std::byte{1}); };
  const auto nowhere = [](std::span<const std::byte>) {};
  sim::Config config;
  config.pins.drift_ppm = 500;  // so that feedback is sent as well
  sim::SimMachine machine(config);
  machine.endpoint(sim::kMicArray).set_source(silence);
  machine.endpoint(sim::kSpeakers).set_sink(nowhere);
  machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_KC_Param, std::vector<std::byte>(2));
  CAudioControl relay(machine.seams(), make_passing_chains);
  relay.SetGenAndFunction(8, 0, 2, 1);
  relay.SetMuteWindow(WindowHandle{1});
  relay.SetEndpointForce(DataFlow::capture, {});
  relay.SetEndpointForce(DataFlow::render, {});
  machine.driver().open_recorder(format, nowhere);
  machine.driver().open_player(format, silence);
  relay.Start();
  machine.run_for(2500);
  const std::uint64_t blocks = relay.CaptureStatistics().blocks;
  const std::uint64_t packets = relay.RenderStatistics().physical_packets;

  const std::uint64_t trims = relay.CaptureStatistics().feedback_changes;
  const std::uint64_t executed = PassingChain::executed;

  const std::uint64_t before = allocations();
  machine.run_for(60000);
  EXPECT_EQ(allocations() - before, 0u);

  EXPECT_GT(relay.CaptureStatistics().feedback_changes, trims);
  EXPECT_GE(PassingChain::executed - executed, 5999u);
  EXPECT_GE(relay.CaptureStatistics().blocks - blocks, 5999u);
  EXPECT_GE(relay.RenderStatistics().physical_packets - packets, 5999u);
  relay.Stop();
}

INSTANTIATE_TEST_SUITE_P(Widths, AMinuteOfAudio, ::testing::Values(16, 24));

}  // namespace
}  // namespace sonivo::test
