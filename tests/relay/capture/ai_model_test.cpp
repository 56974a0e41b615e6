// The third chain as the host steers it: open, close, model rows, use of the enrolled model.

#include "ai_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Values;

class AIOpen : public AIBench, public ::testing::Test {
 protected:
  /// Model that SetAISpeechEnhanceOpen opens with, as the call shows it.
  std::string opened_model_call() {
    chain_.clear();
    open();
    const std::string opened = chain_.calls().back();
    relay_.SetAISpeechEnhanceClose();
    return opened;
  }
};

TEST_F(AIOpen, TakesTheSizeThenOpensWithTheRowsModelAndSetsNoStrength) {
  store_strength(0.5f);
  chain_.clear();
  EXPECT_EQ(relay_.SetAISpeechEnhanceOpen(), kOk);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetParamSize", open_call(model(kModels3[0]))));
}

TEST_F(AIOpen, GivesTheParametersFromTheFourthByteOn) {
  open();
  std::vector<std::uint8_t> numbered(16);
  for (std::uint8_t i = 0; i < 16; ++i) numbered[i] = static_cast<std::uint8_t>(i + 1);
  EXPECT_EQ(chain_.opened_with, numbered);
}

TEST_F(AIOpen, StartsWithRowThree) { EXPECT_EQ(opened_model_call(), open_call(model(kModels3[0]))); }

TEST_F(AIOpen, TakesTheRowsOneToThree) {
  relay_.SetAISpeechEnhanceModelNo(1);
  EXPECT_EQ(opened_model_call(), open_call(model(kModels1[0])));
  relay_.SetAISpeechEnhanceModelNo(2);
  EXPECT_EQ(opened_model_call(), open_call(model(kModels2[0])));
  relay_.SetAISpeechEnhanceModelNo(3);
  EXPECT_EQ(opened_model_call(), open_call(model(kModels3[0])));
}

TEST_F(AIOpen, IgnoresRowsZeroAndFour) {
  relay_.SetAISpeechEnhanceModelNo(2);
  for (const std::int32_t no : {0, 4, -1, 1000}) {
    relay_.SetAISpeechEnhanceModelNo(no);
    EXPECT_EQ(opened_model_call(), open_call(model(kModels2[0]))) << no;
  }
}

TEST_F(AIOpen, RefusesWhenItIsOpenAlready) {
  open();
  chain_.clear();
  EXPECT_EQ(relay_.SetAISpeechEnhanceOpen(), status_bits(0x80004005));
  EXPECT_EQ(bench_.log.count("[cap] SetAISpeechEnhanceOpen::m_AISpeechEnhanceIsOpen Already Open.\n"), 1u);
  EXPECT_THAT(chain_.calls(), IsEmpty());
}

class AIOpenFailure : public AIOpen, public ::testing::WithParamInterface<const char*> {};

TEST_P(AIOpenFailure, LeavesItClosed) {
  chain_.answer(GetParam(), 8);
  EXPECT_EQ(relay_.SetAISpeechEnhanceOpen(), status_bits(0x80004005));
  chain_.pardon(GetParam());
  EXPECT_EQ(relay_.SetAISpeechEnhanceOpen(), kOk);
  EXPECT_FALSE(bench_.log.has("[cap] SetAISpeechEnhanceOpen::m_AISpeechEnhanceIsOpen Already Open.\n"));
}

INSTANTIATE_TEST_SUITE_P(Calls, AIOpenFailure, Values("GetParamSize", "Open"),
                         [](const ::testing::TestParamInfo<const char*>& name) { return std::string(name.param); });

TEST_F(AIOpen, FailsWithoutParameters) {
  bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_BF_KC_Param, {});
  chain_.clear();
  EXPECT_EQ(relay_.SetAISpeechEnhanceOpen(), status_bits(0x80004005));
  EXPECT_THAT(chain_.calls(), ElementsAre("GetParamSize"));
}

TEST_P(AIOpenFailure, HealsAtTheEndOfTheNextAttemptToStreamWithTheModelOfTheRow) {
  relay_.SetAISpeechEnhanceModelNo(2);
  chain_.answer(GetParam(), 8);
  EXPECT_EQ(relay_.SetAISpeechEnhanceOpen(), status_bits(0x80004005));
  chain_.pardon(GetParam());
  start_idle(bench_);
  chain_.clear();
  record_stereo(bench_);
  bench_.machine.run_for(1);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("GetParamSize", open_call(model(kModels2[0])), "SetAISpeechEnhanceStrength(1)"));
  bench_.machine.run_for(100);
  EXPECT_EQ(chain_.count("Run"), 1u);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
}

TEST_F(AIOpen, HealsWithTheModelOfTheRowOnceTheParametersAreThere) {
  bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_BF_KC_Param, {});
  EXPECT_EQ(relay_.SetAISpeechEnhanceOpen(), status_bits(0x80004005));
  bench_.store_beam_forming_parameters();
  start_idle(bench_);
  record_stereo(bench_);
  bench_.machine.run_for(101);
  EXPECT_EQ(chain_.count(open_call(model(kModels3[0]))), 1u);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
}

TEST_F(AIOpen, KeepsTheModelInUseWhenItFailsBeforeTheModelIsChosen) {
  make_file(enrolled());
  ASSERT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  chain_.answer("GetParamSize", 6);
  EXPECT_EQ(relay_.SetAISpeechEnhanceOpen(), status_bits(0x80004005));
  chain_.pardon("GetParamSize");
  start_idle(bench_);
  record_stereo(bench_);
  bench_.machine.run_for(1);  // the end of the attempt opens the chain
  EXPECT_EQ(chain_.count(open_call(enrolled())), 1u);
}

class AIClose : public AIBench, public ::testing::Test {};

TEST_F(AIClose, EndsTheAttemptsAfterAnOpeningThatFailed) {
  chain_.answer("Open", 6);
  EXPECT_EQ(relay_.SetAISpeechEnhanceOpen(), status_bits(0x80004005));
  chain_.pardon("Open");
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  start_idle(bench_);
  chain_.clear();
  record_stereo(bench_);
  bench_.machine.run_for(1);
  EXPECT_THAT(chain_.calls(), IsEmpty());
}

TEST_F(AIClose, DoesNothingWhenItIsClosed) {
  chain_.clear();
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  EXPECT_THAT(chain_.calls(), IsEmpty());
}

TEST_F(AIClose, OnlyClosesWhatDoesntRun) {
  open();
  chain_.clear();
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  EXPECT_THAT(chain_.calls(), ElementsAre("Close"));
}

TEST_F(AIClose, StopsFirstWhatRuns) {
  stream(15);
  chain_.clear();
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  EXPECT_THAT(chain_.calls(), ElementsAre("Stop", "Close"));
}

TEST_F(AIClose, LeavesEverythingAsItWasWhenTheStopFails) {
  stream(15);
  chain_.clear();
  chain_.answer("Stop", 6);
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), status_bits(0x80004005));
  EXPECT_THAT(chain_.calls(), ElementsAre("Stop"));
  bench_.machine.run_for(10);
  EXPECT_EQ(chain_.count("Execute"), 1u);  // still in use
}

TEST_F(AIClose, LeavesEverythingAsItWasWhenTheCloseFails) {
  stream(15);
  chain_.clear();
  chain_.answer("Close", 6);
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), status_bits(0x80004005));
  bench_.machine.run_for(10);
  EXPECT_EQ(chain_.count("Execute"), 1u);
  chain_.pardon("Close");
  chain_.clear();
  EXPECT_EQ(relay_.SetAISpeechEnhanceClose(), kOk);
  EXPECT_THAT(chain_.calls(), ElementsAre("Stop", "Close"));  // it counted as running
}

class AIModelState : public AIBench, public ::testing::Test {};

TEST_F(AIModelState, GoesOverToTheEnrolledModelAndSetsTheStoredStrength) {
  store_strength(0.75f);
  make_file(enrolled());
  open();
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_THAT(chain_.calls(), ElementsAre(call("SetAIModel", enrolled()), "SetAISpeechEnhanceStrength(0.75)"));
  EXPECT_EQ(bench_.log.count("[cap] mbstowcs SUCCESS.\n"), 1u);
}

TEST_F(AIModelState, GoesBackToTheRowsModel) {
  make_file(enrolled());
  make_file(model(kModels3[0]));
  open();
  ASSERT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(false), 1);
  EXPECT_THAT(chain_.calls(), ElementsAre(call("SetAIModel", model(kModels3[0])), "SetAISpeechEnhanceStrength(1)"));
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_THAT(chain_.calls(), ElementsAre(call("SetAIModel", enrolled()), "SetAISpeechEnhanceStrength(1)"));
}

TEST_F(AIModelState, DoesNothingWhenTheStateStays) {
  make_file(enrolled());
  open();
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(false), 1);
  EXPECT_THAT(chain_.calls(), IsEmpty());
  EXPECT_EQ(traces_with(bench_, "mbstowcs"), 0u);
}

TEST_F(AIModelState, AnswersZeroAndTakesTheRowsModelWhenTheEnrolledFileIsMissing) {
  make_file(model(kModels3[0]));
  open();
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 0);
  EXPECT_THAT(chain_.calls(), ElementsAre(call("SetAIModel", model(kModels3[0])), "SetAISpeechEnhanceStrength(1)"));
  // The state is stored all the same.
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_EQ(chain_.calls().size(), 2u);
}

TEST_F(AIModelState, AnswersZeroOnTheWayBackTooWhenTheEnrolledFileIsMissing) {
  relay_.ChangeAISpeechEnhanceSetAiModelState(true);
  open();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(false), 0);
}

TEST_F(AIModelState, SwapsNoModelWhoseFileIsMissingButSetsTheStrength) {
  open();
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 0);
  EXPECT_THAT(chain_.calls(), ElementsAre("SetAISpeechEnhanceStrength(1)"));
}

TEST_F(AIModelState, SwapsNoModelThatIsADirectory) {
  std::filesystem::create_directories(enrolled());
  open();
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);  // it exists
  EXPECT_THAT(chain_.calls(), ElementsAre("SetAISpeechEnhanceStrength(1)"));
}

TEST_F(AIModelState, LeavesAClosedChainAloneButRemembersTheModel) {
  make_file(enrolled());
  stream(1);
  chain_.answer("GetParamSize", 6);
  end_stream();  // and the chain can't be opened again
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_THAT(chain_.calls(), IsEmpty());
  chain_.pardon("GetParamSize");
  record_stereo(bench_);
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count(open_call(enrolled())), 1u);
}

TEST_F(AIModelState, LogsAModelThatTheChainRefusesAndSetsTheStrength) {
  make_file(enrolled());
  open();
  chain_.clear();
  chain_.answer("SetAIModel", 8);
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_EQ(traces_with(bench_, "SetAIModel"), 1u);
  EXPECT_THAT(chain_.calls(), ElementsAre(call("SetAIModel", enrolled()), "SetAISpeechEnhanceStrength(1)"));
}

TEST_F(AIModelState, LogsAStrengthThatTheChainRefuses) {
  make_file(enrolled());
  open();
  chain_.answer("SetAISpeechEnhanceStrength", 6);
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_EQ(traces_with(bench_, "SetAISpeechEnhanceStrength"), 1u);
}

TEST_F(AIModelState, TellsOfAPathThatIsNoText) {
  relay_.SetAISpeechEnhancePmodel("/nowhere/\xFF.bin");
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 0);
  EXPECT_EQ(bench_.log.count("[cap] mbstowcs ERROR.\n"), 1u);
  EXPECT_EQ(bench_.log.count("[cap] mbstowcs SUCCESS.\n"), 0u);
}

TEST_F(AIModelState, IsOnlyStoredByThePlainStoreOfTheStart) {
  make_file(enrolled());
  open();
  chain_.clear();
  relay_.ChangeAISpeechEnhanceSetAiModelState(true);
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_THAT(chain_.calls(), IsEmpty());
}

TEST_F(AIModelState, TakesTheStrengthForOneWhenTheStoredValueIsTooLarge) {
  make_file(enrolled());
  bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_AI_Strength, std::vector<std::byte>(8, std::byte{0x3E}));
  open();
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_EQ(chain_.count("SetAISpeechEnhanceStrength(1)"), 1u);
}

TEST_F(AIModelState, TakesTheRowThatIsSetAtTheTime) {
  make_file(enrolled());
  make_file(model(kModels1[0]));
  open();
  ASSERT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  relay_.SetAISpeechEnhanceModelNo(1);
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(false), 1);
  EXPECT_EQ(chain_.count(call("SetAIModel", model(kModels1[0]))), 1u);
}

}  // namespace
}  // namespace sonivo::test
