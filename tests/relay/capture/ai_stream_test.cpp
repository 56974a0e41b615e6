// The third chain with a physical stream: opening, blocks, settings, closing and re-opening.

#include <atomic>
#include <chrono>
#include <future>

#include "ai_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Values;

class AISpeech : public AIBench, public ::testing::Test {};

TEST_F(AISpeech, KeepsTheStreamFromOpeningWhileItIsClosed) {
  start_idle(bench_);
  chain_.clear();
  record_stereo(bench_);
  bench_.machine.run_for(1);
  EXPECT_EQ(bench_.log.count("[cap] PhysicalEndpointOpen::m_AISpeechEnhanceIsOpen = false.\n"), 1u);
  EXPECT_THAT(chain_.calls(), IsEmpty());  // nor is it opened behind the host's back
  EXPECT_EQ(recording_states(bench_), std::vector<std::uint64_t>{});
}

TEST_F(AISpeech, StaysClosedAtTheEndOfAStreamOnceTheHostHasClosedIt) {
  stream(15);
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  chain_.clear();
  end_stream();
  EXPECT_THAT(chain_.calls(), IsEmpty());
}

TEST_F(AISpeech, IsPassedByBeforeItIsStoppedByTheHost) {
  stream(15);
  const auto blocks_seen = chain_.count("Execute");
  chain_.during("Stop", [&] { bench_.machine.run_for(50); });  // audio goes on meanwhile
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  EXPECT_EQ(chain_.count("Execute"), blocks_seen);
}

TEST_F(AISpeech, IsSetUpWithTheStatesThatItStartsWithAndRun) {
  stream(1);
  EXPECT_THAT(chain_.calls(), ElementsAre("SetDataLength(480)", "SetSamplingRate(48000)", "SetChannel(2)",
                                          "SetKeyReductionActive(0)", "SetNoiseReductionActive(0)",
                                          "SetBeamFormingActive(0)", "SetAISpeechEnhanceActive(0)", "Run"));
}

TEST_F(AISpeech, IsSetUpWithTheStatesOfTheHostAndTheFormatOfTheStream) {
  relay_.ChangeAISpeechEnhanceBeamFormingKeyCancelState(true);
  relay_.ChangeAISpeechEnhanceBeamFormingState(true);
  relay_.ChangeAISpeechEnhanceState(true);
  start();
  bench_.record(pcm_format(44100, 24, 1), microphone(24, 1));
  bench_.machine.run_for(1);
  EXPECT_THAT(chain_.calls(), ElementsAre("SetDataLength(441)", "SetSamplingRate(44100)", "SetChannel(1)",
                                          "SetKeyReductionActive(1)", "SetNoiseReductionActive(1)",
                                          "SetBeamFormingActive(1)", "SetAISpeechEnhanceActive(1)", "Run"));
}

TEST_F(AISpeech, RunsBeforeTheClientStarts) {
  std::size_t runs = 0;
  bench_.machine.script().before(Step::client_start, 1, [&] { runs = chain_.count("Run"); });
  stream(1);
  EXPECT_EQ(runs, 1u);
}

class AISpeechStartFailure : public AISpeech, public ::testing::WithParamInterface<const char*> {};

TEST_P(AISpeechStartFailure, KeepsTheStreamFromOpeningUntilItIsGone) {
  start();
  chain_.answer(GetParam(), 6);
  record_stereo(bench_);
  bench_.machine.run_for(99);
  EXPECT_EQ(recording_states(bench_), std::vector<std::uint64_t>{});
  // It isn't running, so the end of the attempt closes it without a stop and opens it again.
  const auto calls = chain_.calls();
  ASSERT_GE(calls.size(), 5u);
  EXPECT_TRUE(calls[calls.size() - 5].starts_with(GetParam()));
  EXPECT_THAT((std::vector(calls.end() - 4, calls.end())),
              ElementsAre("Close", "GetParamSize", open_call(model(kModels3[0])), "SetAISpeechEnhanceStrength(1)"));

  chain_.pardon(GetParam());
  bench_.machine.run_for(2);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
}

INSTANTIATE_TEST_SUITE_P(Calls, AISpeechStartFailure,
                         Values("SetDataLength", "SetSamplingRate", "SetChannel", "SetKeyReductionActive",
                                "SetNoiseReductionActive", "SetBeamFormingActive", "SetAISpeechEnhanceActive", "Run"),
                         [](const ::testing::TestParamInfo<const char*>& name) { return std::string(name.param); });

TEST_F(AISpeech, TakesUpAllSettingsAtTheHeadOfTheNextBlockOnce) {
  stream(1);
  chain_.clear();
  relay_.UpdateAISpeechEnhanceState(true);
  relay_.UpdateAISpeechEnhanceBeamFormingState(true);
  relay_.UpdateAISpeechEnhanceBeamFormingKeyCancelState(true);
  bench_.machine.run_for(25);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("SetKeyReductionActive(1)", "SetNoiseReductionActive(1)", "SetBeamFormingActive(1)",
                          "SetAISpeechEnhanceActive(1)", "GetDataLength", "Execute", "GetDataLength", "Execute"));
}

TEST_F(AISpeech, IsLeftAloneByUpdatesThatChangeNothingAndByThePlainStoresOfTheStart) {
  stream(1);
  chain_.clear();
  relay_.UpdateAISpeechEnhanceState(false);
  relay_.UpdateAISpeechEnhanceBeamFormingState(false);
  relay_.UpdateAISpeechEnhanceBeamFormingKeyCancelState(false);
  relay_.ChangeAISpeechEnhanceState(true);
  relay_.ChangeAISpeechEnhanceBeamFormingState(true);
  relay_.ChangeAISpeechEnhanceBeamFormingKeyCancelState(true);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetDataLength", "Execute"));
}

TEST_F(AISpeech, TakesUpAChangeMadeWhileNoStreamRunsAtTheOpeningAndAgainAtTheFirstBlock) {
  start();
  relay_.UpdateAISpeechEnhanceBeamFormingKeyCancelState(true);
  relay_.UpdateAISpeechEnhanceState(true);
  record_stereo(bench_);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("SetDataLength(480)", "SetSamplingRate(48000)", "SetChannel(2)", "SetKeyReductionActive(1)",
                          "SetNoiseReductionActive(1)", "SetBeamFormingActive(0)", "SetAISpeechEnhanceActive(1)", "Run",
                          "SetKeyReductionActive(1)", "SetNoiseReductionActive(1)", "SetAISpeechEnhanceActive(1)",
                          "GetDataLength", "Execute"));
}

class AISpeechReductionFailure : public AISpeech, public ::testing::WithParamInterface<const char*> {};

TEST_P(AISpeechReductionFailure, LosesTheBlockButNotTheStream) {
  relay_.ChangeAISpeechEnhanceState(true);
  during_block(5, [this] {
    chain_.answer(GetParam(), 6);
    relay_.UpdateAISpeechEnhanceBeamFormingKeyCancelState(true);
  });
  stream(205);
  EXPECT_EQ(chain_.count("SetKeyReductionActive(1)"), 1u);
  expect_block_6_lost(bench_, chain_);
}

INSTANTIATE_TEST_SUITE_P(Calls, AISpeechReductionFailure, Values("SetKeyReductionActive", "SetNoiseReductionActive"),
                         [](const ::testing::TestParamInfo<const char*>& name) { return std::string(name.param); });

TEST_F(AISpeech, RunsTheBlockEvenWhenBeamAndEnhancementCantBeSwitched) {
  stream(1);
  chain_.clear();
  chain_.answer("SetBeamFormingActive", 6);
  chain_.answer("SetAISpeechEnhanceActive", 6);
  relay_.UpdateAISpeechEnhanceBeamFormingState(true);
  relay_.UpdateAISpeechEnhanceState(true);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("SetBeamFormingActive(1)", "SetAISpeechEnhanceActive(1)", "GetDataLength", "Execute"));
}

class EnhancerWarning : public AISpeech, public ::testing::WithParamInterface<int> {};

TEST_P(EnhancerWarning, LetsTheBlockPass) {
  relay_.ChangeAISpeechEnhanceState(true);
  chain_.answer("Execute", GetParam());
  stream(155);
  const auto heard = bench_.machine.driver().recording();
  EXPECT_TRUE(same_pcm(cut_from(heard, 7 * 480 + 144), cut(microphone(), 0, 8 * 480 - 144)));
}

INSTANTIATE_TEST_SUITE_P(Statuses, EnhancerWarning, Values(0, 101, 102, 103, 104, 105));

TEST_F(AISpeech, HoldsItsLockDuringExecuteSoThatAModelChangeWaits) {
  make_file(enrolled());
  std::future<int> change;
  bool waited = false;
  during_block(2, [&] {
    change = std::async(std::launch::async, [this] { return relay_.UpdateAISpeechEnhanceSetAiModelState(true); });
    waited = change.wait_for(std::chrono::milliseconds(20)) == std::future_status::timeout;
  });
  stream(35);
  EXPECT_TRUE(waited);
  EXPECT_EQ(change.get(), 1);
  EXPECT_EQ(chain_.count(call("SetAIModel", enrolled())), 1u);
}

TEST_F(AISpeech, IsBypassedFromTheNextBlockOnWhenItIsClosedDuringAStreamWhichTakesNoLock) {
  during_block(2, [this] { EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk); });
  stream(155);
  EXPECT_EQ(chain_.count("Execute"), 2u);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
  const auto heard = bench_.machine.driver().recording();
  EXPECT_TRUE(same_pcm(cut_from(heard, 9 * 480), cut(microphone(), 2 * 480 - 144, 6 * 480)));
}

TEST_F(AISpeech, IsStoppedClosedAndOpenedAgainAtTheEndOfAStream) {
  store_strength(0.25f);
  std::vector<std::string> calls_at_stop{"none"};
  stream(15);
  chain_.clear();
  bench_.machine.script().before(Step::client_stop, 1, [&] { calls_at_stop = chain_.calls(); });
  end_stream();
  EXPECT_THAT(calls_at_stop, IsEmpty());  // the client is stopped first
  EXPECT_THAT(chain_.calls(), ElementsAre("Stop", "Close", "GetParamSize", open_call(model(kModels3[0])),
                                          "SetAISpeechEnhanceStrength(0.25)"));
}

TEST_F(AISpeech, IsOpenedAgainWithTheModelThatIsInUse) {
  make_file(enrolled());
  stream(15);
  ASSERT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  chain_.clear();
  end_stream();
  EXPECT_EQ(chain_.count(open_call(enrolled())), 1u);
}

TEST_F(AISpeech, IsGivenTheParametersOfTheTimeWhenItIsOpenedAgain) {
  stream(15);
  std::vector<std::byte> value(19);
  for (std::size_t i = 0; i < 16; ++i) value[i + 3] = static_cast<std::byte>(0xF0 + i);
  bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_BF_KC_Param, value);
  bench_.machine.run_for(1);  // the change restarts the stream
  ASSERT_EQ(chain_.opened_with.size(), 16u);
  for (std::size_t i = 0; i < 16; ++i) EXPECT_EQ(chain_.opened_with[i], 0xF0 + i);
}

TEST_F(AISpeech, RunsAgainInTheNextStream) {
  stream(15);
  end_stream();
  chain_.clear();
  record_stereo(bench_);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("SetDataLength(480)", "SetSamplingRate(48000)", "SetChannel(2)", "SetKeyReductionActive(0)",
                          "SetNoiseReductionActive(0)", "SetBeamFormingActive(0)", "SetAISpeechEnhanceActive(0)", "Run",
                          "GetDataLength", "Execute"));
}

TEST_F(AISpeech, StaysOpenAndRunningWhenItCantBeStopped) {
  stream(15);
  chain_.clear();
  chain_.answer("Stop", 6);
  end_stream();
  EXPECT_THAT(chain_.calls(), ElementsAre("Stop"));
  chain_.pardon("Stop");
  chain_.clear();
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  EXPECT_THAT(chain_.calls(), ElementsAre("Stop", "Close"));
}

TEST_F(AISpeech, StaysOpenButNotRunningWhenItCantBeClosed) {
  stream(15);
  chain_.clear();
  chain_.answer("Close", 6);
  end_stream();
  EXPECT_THAT(chain_.calls(), ElementsAre("Stop", "Close"));
  chain_.pardon("Close");
  chain_.clear();
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  EXPECT_THAT(chain_.calls(), ElementsAre("Close"));
}

class AISpeechReopenFailure : public AISpeech, public ::testing::WithParamInterface<const char*> {};

TEST_P(AISpeechReopenFailure, LeavesItClosed) {
  stream(15);
  chain_.answer(GetParam(), 6);
  end_stream();
  chain_.clear();
  record_stereo(bench_);
  bench_.machine.run_for(1);
  EXPECT_EQ(bench_.log.count("[cap] PhysicalEndpointOpen::m_AISpeechEnhanceIsOpen = false.\n"), 1u);
  EXPECT_EQ(chain_.count("Run"), 0u);

  // Each end of an attempt opens it again.
  chain_.pardon(GetParam());
  bench_.machine.run_for(201);
  EXPECT_EQ(bench_.log.count("[cap] PhysicalEndpointOpen::m_AISpeechEnhanceIsOpen = false.\n"), 2u);
  EXPECT_EQ(chain_.count("Run"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Calls, AISpeechReopenFailure, Values("GetParamSize", "Open", "SetAISpeechEnhanceStrength"),
                         [](const ::testing::TestParamInfo<const char*>& name) { return std::string(name.param); });

TEST_F(AISpeech, IsLeftClosedWhenItsParametersAreGoneAtTheEndOfAStream) {
  stream(15);
  chain_.clear();
  // Read failures from here on; a changed value would restart the stream.
  bench_.machine.script().fail_always(Step::fx_user_value, kFail);
  end_stream();
  EXPECT_THAT(chain_.calls(), ElementsAre("Stop", "Close", "GetParamSize"));
  record_stereo(bench_);
  bench_.machine.run_for(1);
  EXPECT_TRUE(bench_.log.has("[cap] PhysicalEndpointOpen::m_AISpeechEnhanceIsOpen = false.\n"));
}

TEST_F(AISpeech, IsPassedByWhenItsGateOpensInMidStream) {
  stream(15);
  bench_.set_notebook(Notebook::plain);
  relay_.Stream(DataFlow::capture).RequestRestart();
  bench_.machine.run_for(50);
  ASSERT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1, 0, 1}));
  chain_.clear();
  bench_.set_notebook(Notebook::ai_speech);
  bench_.machine.run_for(100);
  EXPECT_THAT(chain_.calls(), IsEmpty());
  expect_microphone_unprocessed(bench_);
}

TEST_F(AISpeech, LeavesTheOtherChainsAlone) {
  bench_.chains.key_cancel->clear();
  bench_.chains.beam_forming->clear();
  stream(50);
  end_stream();
  EXPECT_THAT(bench_.chains.key_cancel->calls(), IsEmpty());
  EXPECT_THAT(bench_.chains.beam_forming->calls(), IsEmpty());
}

}  // namespace
}  // namespace sonivo::test
