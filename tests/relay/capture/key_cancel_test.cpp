// The first chain: opening, blocks, its setting, closing.

#include "classic_bench.h"
#include "relay/effect_properties.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Values;

class KeyCancel : public ClassicBench, public ::testing::Test {
 protected:
  KeyCancel() : ClassicBench(Notebook::key_cancel) {}
};

TEST_F(KeyCancel, IsOpenedWithTheFormatAndTheStoredFlags) {
  bench_.store_key_cancel_parameters(1, 0);
  stream(1);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("GetParamSize", "Open(48000, 2, 480)", "SetDataLength(480)", "SetSamplingRate(48000)",
                          "SetChannel(2)", "SetKeyReductionActive(1)", "SetNoiseReductionActive(0)"));
}

TEST_F(KeyCancel, CountsItsFramesByTheRateOfTheStream) {
  start();
  bench_.record(pcm_format(44100, 24, 1), microphone(24, 1));
  bench_.machine.run_for(1);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("GetParamSize", "Open(44100, 1, 441)", "SetDataLength(441)", "SetSamplingRate(44100)",
                          "SetChannel(1)", "SetKeyReductionActive(1)", "SetNoiseReductionActive(1)"));
}

TEST_F(KeyCancel, TakesAnyFlagByteButZeroForOn) {
  bench_.store_key_cancel_parameters(0x80, 0);
  stream(1);
  EXPECT_EQ(chain_.count("SetKeyReductionActive(1)"), 1u);
  EXPECT_EQ(chain_.count("SetNoiseReductionActive(0)"), 1u);
  bench_.store_key_cancel_parameters(0, 0x80);
  bench_.machine.run_for(1);  // the change restarts the stream
  EXPECT_EQ(chain_.count("SetKeyReductionActive(0)"), 1u);
  EXPECT_EQ(chain_.count("SetNoiseReductionActive(1)"), 1u);
}

TEST_F(KeyCancel, IsGivenTheParametersFromTheThirdByteOn) {
  stream(1);
  std::vector<std::uint8_t> numbered(16);
  for (std::uint8_t i = 0; i < 16; ++i) numbered[i] = static_cast<std::uint8_t>(i + 1);
  EXPECT_EQ(chain_.opened_with, numbered);
}

TEST_F(KeyCancel, TakesItsFlagsFromTheStoreAndNotFromTheState) {
  bench_.relay->ChangeKeyCancelState(false);
  stream(1);
  EXPECT_EQ(chain_.count("SetKeyReductionActive(1)"), 1u);
  EXPECT_EQ(chain_.count("SetNoiseReductionActive(1)"), 1u);
}

TEST_F(KeyCancel, IsOpenBeforeTheClientStarts) {
  std::vector<std::string> calls;
  bench_.machine.script().before(Step::client_start, 1, [&] { calls = chain_.calls(); });
  stream(1);
  ASSERT_THAT(calls, ::testing::Not(IsEmpty()));
  EXPECT_EQ(calls.back(), "SetNoiseReductionActive(1)");
}

TEST_F(KeyCancel, StaysClosedAndLetsTheAudioPassWhenItsParametersCantBeRead) {
  bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_KC_Param, {});
  stream(205);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetParamSize"));
  EXPECT_EQ(traces_with(bench_, "GetFxCapturePropertiesValue"), 1u);
  const auto heard = bench_.machine.driver().recording();
  EXPECT_TRUE(same_pcm(cut_from(heard, 7 * 480 + 144), cut(microphone(), 0, heard.size() / 4 - 7 * 480 - 144)));
  restart_stream();
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count("Close"), 0u);
}

TEST_F(KeyCancel, StaysClosedWhenTheStoredValueIsLargerThanItsParameters) {
  bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_KC_Param, std::vector<std::byte>(19));
  stream(50);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetParamSize"));
  EXPECT_EQ(state(), StreamState::ePhysicalStreaming);
}

class KeyCancelOpenFailure : public KeyCancel, public ::testing::WithParamInterface<const char*> {};

TEST_P(KeyCancelOpenFailure, KeepsTheStreamFromOpeningUntilItIsGone) {
  start();
  chain_.answer(GetParam(), 6);
  record_stereo(bench_);
  bench_.machine.run_for(99);
  EXPECT_TRUE(chain_.calls().back().starts_with(GetParam()));  // nothing is called after what failed, nor is it closed
  EXPECT_EQ(chain_.count("GetParamSize"), 1u);
  EXPECT_EQ(bench_.machine.script().count(Step::client_start), 0u);
  EXPECT_EQ(recording_states(bench_), std::vector<std::uint64_t>{});

  chain_.pardon(GetParam());
  bench_.machine.run_for(2);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
}

INSTANTIATE_TEST_SUITE_P(Calls, KeyCancelOpenFailure,
                         Values("GetParamSize", "Open", "SetDataLength", "SetSamplingRate", "SetChannel",
                                "SetKeyReductionActive", "SetNoiseReductionActive"),
                         [](const ::testing::TestParamInfo<const char*>& call) { return std::string(call.param); });

TEST_F(KeyCancel, IsAskedForItsLengthAndExecutedInEachBlock) {
  stream(1);
  chain_.clear();
  bench_.machine.run_for(35);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("GetDataLength", "Execute", "GetDataLength", "Execute", "GetDataLength", "Execute"));
}

TEST_F(KeyCancel, IsntCalledWhenItsStateChanges) {
  stream(1);
  chain_.clear();
  bench_.relay->UpdateKeyCancelState(false);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetDataLength", "Execute"));
}

TEST_F(KeyCancel, IsClosedAfterTheClientIsStopped) {
  stream(15);
  std::size_t closed_at_stop = 1;
  bench_.machine.script().before(Step::client_stop, 1, [&] { closed_at_stop = chain_.count("Close"); });
  bench_.machine.driver().close_client(sim::PinId::mic);
  bench_.machine.run_for(1);
  EXPECT_EQ(closed_at_stop, 0u);
  EXPECT_EQ(chain_.calls().back(), "Close");
}

TEST_F(KeyCancel, GoesOnAfterAFailureToCloseWhichIsOnlyLogged) {
  stream(15);
  chain_.answer("Close", 6);
  restart_stream();
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count("Close"), 1u);
  EXPECT_EQ(traces_with(bench_, "Close failed"), 1u);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1, 0, 1}));
}

TEST_F(KeyCancel, IsClosedOnceMoreWhenTheNextClientDoesntInitialize) {
  stream(15);
  bench_.machine.script().fail(Step::client_initialize, kFail);
  restart_stream();
  bench_.machine.run_for(1);
  // Only an opening that gets as far as the chain clears its open flag.
  EXPECT_EQ(chain_.count("Close"), 2u);
}

TEST_F(KeyCancel, IsntClosedOnceItsOpeningFailed) {
  stream(15);
  chain_.answer("SetChannel", 4);
  restart_stream();
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count("Close"), 1u);
  bench_.machine.run_for(100);  // a second attempt failed too
  EXPECT_EQ(chain_.count("SetChannel(2)"), 3u);
  EXPECT_EQ(chain_.count("Close"), 1u);
}

TEST_F(KeyCancel, IsntClosedOnceItsSizeCouldntBeHad) {
  stream(15);
  chain_.answer("GetParamSize", 6);
  restart_stream();
  bench_.machine.run_for(150);
  EXPECT_EQ(chain_.count("Close"), 1u);
}

TEST_F(KeyCancel, IsBypassedInAStreamThatFindsItsParametersGone) {
  stream(15);
  bench_.machine.script().fail_always(Step::fx_user_value, kFail);
  restart_stream();
  chain_.clear();
  bench_.machine.run_for(50);
  EXPECT_THAT(chain_.calls(), ElementsAre("Close", "GetParamSize"));
  EXPECT_EQ(state(), StreamState::ePhysicalStreaming);
}

TEST_F(KeyCancel, LeavesTheOtherChainsAlone) {
  bench_.chains.beam_forming->clear();
  bench_.chains.ai_speech->clear();
  stream(50);
  EXPECT_THAT(bench_.chains.beam_forming->calls(), IsEmpty());
  EXPECT_THAT(bench_.chains.ai_speech->calls(), IsEmpty());
}

}  // namespace
}  // namespace sonivo::test
