// How both registry threads open, watch and end, and what the first does besides building a voice model.

#include "registry_bench.h"

namespace sonivo::test {
namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::Values;

// ---- What both threads share

struct RegistryRoutine {
  const char* name;
  Routine routine;
  EventPair HostState::*events;
};
void PrintTo(const RegistryRoutine& row, std::ostream* out) { *out << row.name; }

class RegistryThread : public RegistryBench, public ::testing::TestWithParam<RegistryRoutine> {
 protected:
  void start() { RegistryBench::start(GetParam().routine); }
  EventPair& events() { return host.*GetParam().events; }
  /// How often the registration value was looked at.
  std::size_t served() {
    const auto all = asked();
    return static_cast<std::size_t>(
        std::count(all.begin(), all.end(), Asked{control::GetAispeechenhanceRegistrationMTG}));
  }
};

TEST_P(RegistryThread, EndsWith3WithoutTheMicrophonesGuid) {
  machine.endpoints().rename(sim::kMicArray, "Microphone (somebody else's)");
  EXPECT_EQ(GetParam().routine(host), 3u);
  EXPECT_EQ(script.count(Step::fx_open_watch), 0u);
}

TEST_P(RegistryThread, EndsWith3WhenTheGuidCantBeRead) {
  script.fail_always(Step::fx_policy_value, kFail);
  EXPECT_EQ(GetParam().routine(host), 3u);
}

TEST_P(RegistryThread, EndsWith1WithoutAStoreToWatch) {
  script.fail(Step::fx_open_watch, error::kAccessDenied);
  EXPECT_EQ(GetParam().routine(host), 1u);
  EXPECT_EQ(log.count("Error in RegOpenKeyEx (5).\n"), 1u);
}

TEST_P(RegistryThread, EndsWhenItCantWatchAndTakesTheStopBack) {
  events().Set(EventPair::kStop);
  script.fail(Step::fx_arm, status_from_error(error::kAccessDenied));
  EXPECT_EQ(GetParam().routine(host), 0u);
  EXPECT_EQ(log.count("Error in RegNotifyChangeKeyValue (5).\n"), 1u);
  EXPECT_FALSE(signalled(events(), EventPair::kStop));
}

TEST_P(RegistryThread, EndsWithoutItsEvents) {
  events().Close(EventPair::kWork);
  events().Close(EventPair::kStop);
  EXPECT_EQ(GetParam().routine(host), 0u);
  EXPECT_THAT(log.traces(), Contains(StartsWith("Error in RegNotifyChangeKeyValue (")));
}

TEST_P(RegistryThread, EndsWithoutItsStopEvent) {
  events().Close(EventPair::kStop);
  EXPECT_EQ(GetParam().routine(host), 0u);
  EXPECT_EQ(log.count("ChangeRegistryThread ERROR.\n"), 1u);
}

TEST_P(RegistryThread, EndsWhenItsWaitFails) {
  script.fail(Step::wait_any, error::kInvalidHandle);
  EXPECT_EQ(GetParam().routine(host), 0u);
  EXPECT_EQ(log.count("ChangeRegistryThread ERROR.\n"), 1u);
}

TEST_P(RegistryThread, EndsWithItsStopEventAndTakesItBack) {
  start();
  events().Set(EventPair::kStop);
  join();
  EXPECT_EQ(status, 0u);
  EXPECT_FALSE(signalled(events(), EventPair::kStop));
  EXPECT_THAT(log.traces(), Each(::testing::Not(::testing::HasSubstr("ERROR"))));
  EXPECT_EQ(machine.leaks().fx_objects, 0u);
}

TEST_P(RegistryThread, ServesEachChangeOnce) {
  start();
  asked();
  machine.run_for(1000);
  EXPECT_EQ(served(), 0u);
  touch();
  machine.run_for(1000);
  EXPECT_EQ(served(), 1u);
  touch();
  machine.run_for(1);
  EXPECT_EQ(served(), 1u);
  EXPECT_FALSE(signalled(events(), EventPair::kWork));
}

TEST_P(RegistryThread, ServesAMissedChangeOnceItsSessionIsBack) {
  start();
  asked();
  machine.session().set_console_session(2);
  touch();
  machine.run_for(1000);
  EXPECT_EQ(served(), 0u);
  EXPECT_TRUE(signalled(events(), EventPair::kWork)) << "and stays so";
  machine.session().set_console_session(1);
  machine.run_for(200);
  EXPECT_EQ(served(), 1u);
}

TEST_P(RegistryThread, LooksForItsSessionEvery200Milliseconds) {
  start();
  machine.session().set_console_session(2);
  touch();
  const std::uint64_t before = script.count(Step::process_session);
  machine.run_for(900);
  EXPECT_EQ(script.count(Step::process_session), before + 5);
}

TEST_P(RegistryThread, WaitsForASessionThatCantBeTold) {
  start();
  asked();
  script.fail_always(Step::process_session, 1);
  touch();
  machine.run_for(1000);
  EXPECT_EQ(served(), 0u);
  script.pardon(Step::process_session);
  machine.run_for(200);
  EXPECT_EQ(served(), 1u);
}

TEST_P(RegistryThread, StopsInItsSessionOnly) {
  start();
  machine.session().set_console_session(2);
  events().Set(EventPair::kStop);
  machine.run_for(1000);
  EXPECT_EQ(machine.scheduler().live_threads(), 1u);
  machine.session().set_console_session(1);
  machine.run_for(200);
  EXPECT_EQ(machine.scheduler().live_threads(), 0u);
}

TEST_P(RegistryThread, OnlyTakesTheChangeBackWithoutModeThreads) {
  start();
  set_notebook(Notebook::plain);
  asked();
  touch();
  machine.run_for(1);
  EXPECT_THAT(asked(), IsEmpty());
  EXPECT_FALSE(signalled(events(), EventPair::kWork));
}

TEST_P(RegistryThread, TakesAChangeBeforeAStop) {
  start();
  asked();
  events().Set(EventPair::kWork);
  events().Set(EventPair::kStop);
  join();
  EXPECT_EQ(served(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Threads, RegistryThread,
                         Values(RegistryRoutine{"change", ChangeRegistryThread, &HostState::m_hRegistryEvent},
                                RegistryRoutine{"quit", ChangeRegistryThread_Quit, &HostState::m_hRegistryEvent_Quit}));

// ---- Settings after a change

class RegistryChange : public RegistryBench, public ::testing::Test {
 protected:
  /// Small, medium or large: the model that an enrolment would start from.
  std::string base_model() {
    chains.ai_speech->clear();
    host.m_AudioControl.MakeAISpeechEnhanceModel(true);
    return chains.ai_speech->calls().front();
  }
  std::string set_model(const char* name) const { return "SetAIModel(" + model(name) + ")"; }
};

TEST_F(RegistryChange, ReappliesTheRulesAloneForOtherRegistrationValues) {
  start();
  device.set_number(control::GetHeadphone, 1);
  for (const std::uint32_t value : {0u, 19u, 30u, 40u}) {
    host.m_dwHeadPhone = 0;
    touch(value);
    EXPECT_EQ(host.m_dwHeadPhone, 1u) << value;
    EXPECT_EQ(registration(), value);
    EXPECT_THAT(asked(),
                ElementsAre(Asked{control::GetAispeechenhanceRegistrationMTG},
                            Asked{control::GetAispeechenhanceModelNoMTG}, Asked{control::NSV_GET_LAUNCHED_MTG},
                            Asked{control::GetHeadphone}, Asked{control::SetAispeechenhanceMTG, 0},
                            Asked{control::SetAispeechenhanceSetAiModelMTG, 0}, Asked{control::GetKeyboardCancelMTG},
                            Asked{control::GetBeamformingMTG}, Asked{control::GetAispeechenhanceMTG},
                            Asked{control::GetAispeechenhanceSetAiModelMTG}, Asked{control::SetBeamformingMTG, 0}))
        << value;
  }
}

TEST_F(RegistryChange, FollowsTheModelNumber) {
  device.set_number(control::GetAispeechenhanceModelNoMTG, 2);
  start();
  EXPECT_EQ(base_model(), set_model("model_se_streaming_RTF0.25_v2.bin"));
  device.set_number(control::GetAispeechenhanceModelNoMTG, 1);
  touch(0);
  EXPECT_EQ(base_model(), set_model("model_se_streaming_RTF0.5_v2.bin"));
  device.set_number(control::GetAispeechenhanceModelNoMTG, 3);
  touch(0);
  EXPECT_EQ(base_model(), set_model("model_se_streaming_RTF0.10_v2.bin"));
}

TEST_F(RegistryChange, TakesTheFirstModelWhenTheNumberCantBeRead) {
  device.fail(control::GetAispeechenhanceModelNoMTG, 31);
  start();
  EXPECT_EQ(base_model(), set_model("model_se_streaming_RTF0.5_v2.bin"));
}

TEST_F(RegistryChange, PassesTheModelNumberOnWhenItChanges) {
  device.set_number(control::GetAispeechenhanceModelNoMTG, 2);
  start();
  host.m_AudioControl.SetAISpeechEnhanceModelNo(3);
  touch(0);
  EXPECT_EQ(base_model(), set_model("model_se_streaming_RTF0.10_v2.bin")) << "it was 2 before";
}

TEST_F(RegistryChange, AsksForTheModelNumberBeforehandUnderTheThirdGateOnly) {
  start();
  EXPECT_THAT(asked(), ElementsAre(Asked{control::GetAispeechenhanceModelNoMTG}));
  stop();
  set_notebook(Notebook::beam_forming);
  start();
  EXPECT_THAT(asked(), IsEmpty());
  touch(0);
  EXPECT_THAT(asked(), Contains(Asked{control::GetAispeechenhanceModelNoMTG}));
}

}  // namespace
}  // namespace sonivo::test
