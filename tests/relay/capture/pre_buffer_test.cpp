// The PRE buffer, met with packets that are longer than the hardware's.

#include "capture_bench.h"
#include "packet_endpoints.h"

namespace sonivo::test {
namespace {

/// A relay on a notebook whose microphone's first packets are given.
class PreBuffer : public ::testing::Test {
 protected:
  PreBuffer() : bench_(untrimmed()) {
    const Machine seams = bench_.machine.seams();
    endpoints_ = std::make_unique<PacketEndpoints>(seams.endpoints);
    bench_.relay = std::make_unique<CAudioControl>(Machine{.clock = seams.clock,
                                                           .events = seams.events,
                                                           .threads = seams.threads,
                                                           .bus = seams.bus,
                                                           .endpoints = *endpoints_,
                                                           .fx_properties = seams.fx_properties,
                                                           .session = seams.session,
                                                           .power = seams.power,
                                                           .desktop = seams.desktop,
                                                           .processes = seams.processes,
                                                           .folders = seams.folders},
                                                   bench_.chains.factory());
    bench_.relay->SetMuteWindow(kMuteWindow);
    start_idle(bench_);
  }
  void give(std::size_t frames) { endpoints_->give(std::vector<std::byte>(frames * 4, std::byte{1}), 4); }

  std::unique_ptr<PacketEndpoints> endpoints_;  // outlives the relay
  RelayBench bench_;
};

TEST_F(PreBuffer, TakesAPacketThatFillsIt) {
  give(1440 - 144);  // 30 ms less the 3 ms of silence that it starts with
  record_stereo(bench_);
  bench_.machine.run_for(15);
  EXPECT_EQ(bench_.relay->CaptureStatistics().blocks, 3u);
  EXPECT_FALSE(bench_.log.has_debug_string("[cap] PRE buffer no space\n"));
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
}

TEST_F(PreBuffer, EndsTheStreamOverASingleFrameTooMany) {
  give(1440 - 144 + 1);
  record_stereo(bench_);
  bench_.machine.run_for(5);
  bench_.log.clear();
  bench_.machine.run_for(7);
  EXPECT_TRUE(bench_.log.has_debug_string("[cap] PRE buffer no space\n"));
  EXPECT_EQ(bench_.log.count("[cap] physical mic: too small valid space in ring buffer\n"), 1u);
  EXPECT_EQ(bench_.log.count("[cap] stream stopped\n"), 1u);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1, 0, 1}));
}

TEST_F(PreBuffer, LetsItsBlocksOutAndReleasesThePacketEvenWhenThePacketDidntFit) {
  give(2000);
  record_stereo(bench_);
  bench_.machine.run_for(15);
  EXPECT_EQ(bench_.relay->CaptureStatistics().blocks, 3u);
  EXPECT_EQ(bench_.machine.script().count(Step::capture_release_buffer), 1u);
}

TEST_F(PreBuffer, MakesTheRingReadyAsSoonAsThreeBlocksAreOut) {
  give(1440 - 144);
  record_stereo(bench_);
  bench_.machine.run_for(105);
  // The packet came after the buffer of 10 ms; that of 20 ms is the first to be filled from the ring.
  const auto heard = bench_.machine.driver().recording();
  EXPECT_EQ(leading_zero_frames(heard, 4), 5u * 480 + 144);
}

TEST_F(PreBuffer, KeepsTheRingUnreadyWhileAFrameIsMissing) {
  give(1440 - 144 - 1);
  record_stereo(bench_);
  bench_.machine.run_for(105);
  const auto heard = bench_.machine.driver().recording();
  EXPECT_EQ(leading_zero_frames(heard, 4), 6u * 480 + 144);
}

TEST_F(PreBuffer, KeepsTheBlocksAfterTheOneWhoseSettingFailed) {
  bench_.relay->SetGenAndFunction(8, 0, 3, 2);  // the second chain
  bench_.store_beam_forming_parameters();
  ChainScript& chain = *bench_.chains.beam_forming;
  chain.process = [&, block = 0](float*, std::size_t, std::size_t) mutable {
    if (++block != 1) return;
    chain.answer("SetKeyReductionActive", 6);
    bench_.relay->UpdateBeamFormingKeyCancelState(false);
  };
  give(480);
  give(1440 - 144);
  record_stereo(bench_);
  bench_.machine.run_for(25);
  EXPECT_EQ(chain.count("Execute"), 1u);  // the first of the three blocks of the second packet ended them all
  bench_.machine.run_for(10);
  EXPECT_EQ(chain.count("Execute"), 4u);  // two that were left and the one of the third packet
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
}

}  // namespace
}  // namespace sonivo::test
