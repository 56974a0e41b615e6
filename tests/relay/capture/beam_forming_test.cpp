// The second chain: opening, blocks, its settings.

#include "classic_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
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
  expect_block_6_lost(bench_, chain_);
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

}  // namespace
}  // namespace sonivo::test
