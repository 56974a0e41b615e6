// The host's threads at work beside a running stream, all of them free to run at once.

#include "ai_bench.h"

namespace sonivo::test {
namespace {

TEST(MuteFromTwoThreads, TellsTheEchoFilterEachTime) {
  constexpr std::size_t kTimes = 100;
  RelayBench bench({.schedule = sim::Schedule::free, .echo_filter = true});
  start_idle(bench);
  bench.machine.script().fail(sim::Step::filter_control, error::kInvalidFunction, 20);
  bench.machine.script().fail(sim::Step::filter_control, error::kInvalidFunction, 21);
  const auto mute_and_unmute = [&] {
    for (std::size_t i = 0; i < kTimes; ++i) EXPECT_EQ(bench.relay->SetMuteAction(i % 2 == 0), kOk);
  };
  run_at_once(bench.machine, {mute_and_unmute, mute_and_unmute});
  EXPECT_EQ(bench.machine.driver().echo_filter().values().size(), 2 * kTimes - 2);
  EXPECT_EQ(bench.machine.driver().echo_filter().open_handles(), 0u);
}

TEST(GenerationAndFunctionFromAnotherThread, LeaveBothStreamsFlowing) {
  RelayBench bench({.schedule = sim::Schedule::free}, Notebook::key_cancel);
  bench.store_key_cancel_parameters(1, 1);
  start_idle(bench);
  record_stereo(bench);
  bench.play(pcm_format(48000, 16, 2), microphone());
  run_at_once(bench.machine, {[&] {
                for (int connection = 0; connection < 100; ++connection) {
                  bench.set_notebook(Notebook::key_cancel);
                  bench.machine.scheduler().sleep_ms(3);
                }
              }});
  EXPECT_EQ(bench.relay->CaptureStatistics().streams, 1u);
  EXPECT_EQ(bench.relay->RenderStatistics().streams, 1u);
  EXPECT_GE(bench.chains.key_cancel->count("Execute"), 29u);
  EXPECT_GE(bench.relay->RenderStatistics().physical_packets, 29u);
}

class SettingsFromTwoThreads : public AIBench, public ::testing::Test {
 protected:
  static constexpr int kRounds = 150;  // of 2 ms each

  SettingsFromTwoThreads() : AIBench(sim::Schedule::free) {
    for (const auto& row : {kModels1, kModels2, kModels3}) make_file(model(row[0]));
    chain_.during("MakeAIModel", [this] { make_file(enrolled()); });
  }

  void change_settings(int round) {
    const bool on = round % 2 == 0;
    relay_.UpdateKeyCancelState(on);
    relay_.UpdateBeamFormingKeyCancelState(on);
    relay_.UpdateBeamFormingState(on);
    relay_.UpdateAISpeechEnhanceBeamFormingKeyCancelState(on);
    relay_.UpdateAISpeechEnhanceBeamFormingState(on);
    relay_.UpdateAISpeechEnhanceState(on);
    relay_.UpdateAISpeechEnhanceSetAiModelState(on);
    relay_.SetAISpeechEnhanceModelNo(1 + round % 3);
    relay_.SetAISpeechEnhancePmodel(enrolled().c_str());
  }
  void enrol(int round) {
    relay_.SetAISpeechEnhanceWavFile("voice.wav");
    if (round % 5 == 0) relay_.MakeAISpeechEnhanceModel(true);
    if (round % 7 == 0) relay_.QuitAISpeechEnhanceModel();
  }
  /// Both at once, the second thread with the two in the other order.
  void disturb() {
    auto& machine = bench_.machine;
    const auto rounds = [&](int first, auto each) {
      for (int round = first; round < first + kRounds; ++round) {
        each(round);
        machine.scheduler().sleep_ms(2);
      }
    };
    run_at_once(machine, {[&] { rounds(0, [this](int r) { change_settings(r), enrol(r); }); },
                          [&] { rounds(1, [this](int r) { enrol(r), change_settings(r); }); }});
  }
};

TEST_F(SettingsFromTwoThreads, LeaveTheStreamFlowing) {
  stream(50);
  disturb();
  const std::uint64_t blocks = bench_.relay->CaptureStatistics().blocks;
  const std::size_t executed = chain_.count("Execute");
  EXPECT_GE(blocks, 30u);
  bench_.machine.run_for(100);
  EXPECT_GE(bench_.relay->CaptureStatistics().blocks, blocks + 9);
  EXPECT_GE(chain_.count("Execute"), executed + 9);
  EXPECT_EQ(bench_.relay->CaptureStatistics().streams, 1u);
  EXPECT_GE(chain_.count("QuitMakeAIModel"), 2u * kRounds / 7);
}

TEST_F(SettingsFromTwoThreads, LeaveTheStreamFlowingWhenItIsOpenedAnewMeanwhile) {
  chain_.answer("QuitMakeAIModel", 15);  // so that the enrolled file goes and comes
  stream(50);
  for (std::uint32_t ms = 50; ms < 300; ms += 50) {
    bench_.machine.after(ms, [this] { relay_.Stream(DataFlow::capture).RequestRestart(); });
  }
  disturb();
  bench_.machine.run_for(50);
  const std::size_t executed = chain_.count("Execute");
  bench_.machine.run_for(100);
  EXPECT_GE(chain_.count("Execute"), executed + 9);
  EXPECT_EQ(bench_.relay->CaptureStatistics().streams, 6u);
}

}  // namespace
}  // namespace sonivo::test
