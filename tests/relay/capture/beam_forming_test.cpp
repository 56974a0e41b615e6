// The second chain: opening, blocks, its settings, closing.

#include "classic_bench.h"
#include "relay/effect_properties.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Values;

class BeamForming : public ClassicBench, public ::testing::Test {
 protected:
  BeamForming() : ClassicBench(Notebook::beam_forming) {}
};

TEST_F(BeamForming, IsOpenedWithTheStatesThatItStartsWith) {
  stream(1);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetParamSize", "Open(48000, 2, 480)", "SetDataLength(480)",
                                          "SetSamplingRate(48000)", "SetChannel(2)", "SetKeyReductionActive(1)",
                                          "SetNoiseReductionActive(1)", "SetBeamFormingActive(0)"));
}

TEST_F(BeamForming, IsOpenedWithTheStatesOfTheHost) {
  bench_.relay->ChangeBeamFormingKeyCancelState(false);
  bench_.relay->ChangeBeamFormingState(true);
  stream(1);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetParamSize", "Open(48000, 2, 480)", "SetDataLength(480)",
                                          "SetSamplingRate(48000)", "SetChannel(2)", "SetKeyReductionActive(0)",
                                          "SetNoiseReductionActive(0)", "SetBeamFormingActive(1)"));
}

TEST_F(BeamForming, IsGivenTheParametersFromTheFourthByteOn) {
  stream(1);
  std::vector<std::uint8_t> numbered(16);
  for (std::uint8_t i = 0; i < 16; ++i) numbered[i] = static_cast<std::uint8_t>(i + 1);
  EXPECT_EQ(chain_.opened_with, numbered);
}

TEST_F(BeamForming, StaysClosedAndLetsTheAudioPassWhenItsParametersCantBeRead) {
  bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_BF_KC_Param, {});
  stream(205);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetParamSize"));
  const auto heard = bench_.machine.driver().recording();
  EXPECT_TRUE(same_pcm(cut_from(heard, 7 * 480 + 144), cut(microphone(), 0, heard.size() / 4 - 7 * 480 - 144)));
}

class BeamFormingOpenFailure : public BeamForming, public ::testing::WithParamInterface<const char*> {};

TEST_P(BeamFormingOpenFailure, KeepsTheStreamFromOpeningUntilItIsGone) {
  start();
  chain_.answer(GetParam(), 6);
  record_stereo(bench_);
  bench_.machine.run_for(99);
  EXPECT_TRUE(chain_.calls().back().starts_with(GetParam()));
  EXPECT_EQ(chain_.count("GetParamSize"), 1u);
  EXPECT_EQ(recording_states(bench_), std::vector<std::uint64_t>{});

  chain_.pardon(GetParam());
  bench_.machine.run_for(2);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
}

INSTANTIATE_TEST_SUITE_P(Calls, BeamFormingOpenFailure,
                         Values("GetParamSize", "Open", "SetDataLength", "SetSamplingRate", "SetChannel",
                                "SetKeyReductionActive", "SetNoiseReductionActive", "SetBeamFormingActive"),
                         [](const ::testing::TestParamInfo<const char*>& call) { return std::string(call.param); });

TEST_F(BeamForming, TakesUpBothSettingsAtTheHeadOfTheNextBlockOnce) {
  stream(1);
  chain_.clear();
  bench_.relay->UpdateBeamFormingState(true);
  bench_.relay->UpdateBeamFormingKeyCancelState(false);
  bench_.machine.run_for(25);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("SetKeyReductionActive(0)", "SetNoiseReductionActive(0)", "SetBeamFormingActive(1)",
                          "GetDataLength", "Execute", "GetDataLength", "Execute"));
}

TEST_F(BeamForming, TakesUpAChangeMadeDuringABlockInTheBlockAfterIt) {
  during_block(2, [this] { bench_.relay->UpdateBeamFormingState(true); });
  stream(1);
  chain_.clear();
  bench_.machine.run_for(35);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetDataLength", "Execute", "GetDataLength", "Execute",
                                          "SetBeamFormingActive(1)", "GetDataLength", "Execute"));
}

TEST_F(BeamForming, IsLeftAloneWhenAnUpdateChangesNothing) {
  stream(1);
  chain_.clear();
  bench_.relay->UpdateBeamFormingKeyCancelState(true);
  bench_.relay->UpdateBeamFormingState(false);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetDataLength", "Execute"));
}

TEST_F(BeamForming, IsLeftAloneByThePlainStoresOfTheStart) {
  stream(1);
  chain_.clear();
  bench_.relay->ChangeBeamFormingKeyCancelState(false);
  bench_.relay->ChangeBeamFormingState(true);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetDataLength", "Execute"));
}

TEST_F(BeamForming, IsSwitchedOnceWhenAStateGoesThereAndBackBetweenTwoBlocks) {
  stream(1);
  chain_.clear();
  bench_.relay->UpdateBeamFormingState(true);
  bench_.relay->UpdateBeamFormingState(false);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(), ElementsAre("SetBeamFormingActive(0)", "GetDataLength", "Execute"));
}

TEST_F(BeamForming, TakesUpAChangeMadeWhileNoStreamRunsAtTheOpeningAndAgainAtTheFirstBlock) {
  start();
  bench_.relay->UpdateBeamFormingKeyCancelState(false);
  record_stereo(bench_);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("GetParamSize", "Open(48000, 2, 480)", "SetDataLength(480)", "SetSamplingRate(48000)",
                          "SetChannel(2)", "SetKeyReductionActive(0)", "SetNoiseReductionActive(0)",
                          "SetBeamFormingActive(0)",                                 //
                          "SetKeyReductionActive(0)", "SetNoiseReductionActive(0)",  // the flag was still set
                          "GetDataLength", "Execute"));
}

class BeamFormingReductionFailure : public BeamForming, public ::testing::WithParamInterface<const char*> {};

TEST_P(BeamFormingReductionFailure, LosesTheBlockButNotTheStream) {
  during_block(5, [this] {
    chain_.answer(GetParam(), 6);
    bench_.relay->UpdateBeamFormingKeyCancelState(false);
    bench_.relay->UpdateBeamFormingKeyCancelState(true);
  });
  // Block 6 takes the change up in vain. The flag is gone by then, so block 7 runs again.
  stream(205);
  EXPECT_EQ(chain_.count("SetKeyReductionActive(1)"), 2u);  // at the opening and at block 6
  EXPECT_EQ(chain_.count("Execute"), 19u);
  EXPECT_EQ(traces_with(bench_, "ProcessBlocks"), 1u);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));

  const auto processed = join({zeros(144), microphone()});
  const auto expected = join({zeros(7 * 480), cut(processed, 0, 5 * 480), cut(processed, 6 * 480, 8 * 480)});
  const auto heard = bench_.machine.driver().recording();
  EXPECT_TRUE(same_pcm(heard, cut(expected, 0, heard.size() / 4)));
  EXPECT_EQ(heard.size(), 20u * 480 * 4);
}

INSTANTIATE_TEST_SUITE_P(Calls, BeamFormingReductionFailure, Values("SetKeyReductionActive", "SetNoiseReductionActive"),
                         [](const ::testing::TestParamInfo<const char*>& call) { return std::string(call.param); });

TEST_F(BeamForming, RunsTheBlockEvenWhenTheBeamCantBeSwitched) {
  stream(1);
  chain_.clear();
  chain_.answer("SetBeamFormingActive", 6);
  bench_.relay->UpdateBeamFormingState(true);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(), ElementsAre("SetBeamFormingActive(1)", "GetDataLength", "Execute"));
  EXPECT_EQ(bench_.relay->CaptureStatistics().blocks, 1u);
}

TEST_F(BeamForming, IsClosedWithTheStreamAndOpenedWithTheNext) {
  stream(15);
  chain_.clear();
  restart_stream();
  bench_.machine.run_for(1);
  const auto calls = chain_.calls();
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(calls[0], "Close");
  EXPECT_EQ(calls[1], "GetParamSize");
  EXPECT_EQ(calls[2], "Open(48000, 2, 480)");
}

TEST_F(BeamForming, GoesOnAfterAFailureToCloseWhichIsOnlyLogged) {
  stream(15);
  chain_.answer("Close", 6);
  restart_stream();
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count("Close"), 1u);
  EXPECT_EQ(traces_with(bench_, "Close failed"), 1u);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1, 0, 1}));
}

TEST_F(BeamForming, IsClosedOnceMoreWhenTheNextClientDoesntInitialize) {
  stream(15);
  bench_.machine.script().fail(Step::client_initialize, kFail);
  restart_stream();
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count("Close"), 2u);
}

TEST_F(BeamForming, IsntClosedOnceItsSizeCouldntBeHad) {
  stream(15);
  chain_.answer("GetParamSize", 6);
  restart_stream();
  bench_.machine.run_for(150);
  EXPECT_EQ(chain_.count("Close"), 1u);
}

TEST_F(BeamForming, IsBypassedInAStreamThatFindsItsParametersGone) {
  stream(15);
  bench_.machine.script().fail_always(Step::fx_user_value, kFail);
  restart_stream();
  chain_.clear();
  bench_.machine.run_for(50);
  EXPECT_THAT(chain_.calls(), ElementsAre("Close", "GetParamSize"));
  EXPECT_EQ(state(), StreamState::ePhysicalStreaming);
}

TEST_F(BeamForming, LeavesTheOtherChainsAlone) {
  bench_.chains.key_cancel->clear();
  bench_.chains.ai_speech->clear();
  stream(50);
  EXPECT_THAT(bench_.chains.key_cancel->calls(), IsEmpty());
  EXPECT_THAT(bench_.chains.ai_speech->calls(), IsEmpty());
}

}  // namespace
}  // namespace sonivo::test
