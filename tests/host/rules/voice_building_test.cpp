// A voice model built on request, published beside its recording, and the abort of a build.

#include "host/voice_building.h"

#include <iterator>

#include "registry_bench.h"

namespace sonivo::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::Values;

std::string text_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// What a build writes to the driver, that ends with this state of the voice model and this registration value.
std::vector<Asked> build_writes(std::uint32_t voice_model, std::uint32_t final) {
  return {{control::SetAispeechenhanceRegistrationMTG, 30},
          {control::SetAispeechenhanceSetAiModelMTG, voice_model},
          {control::SetAispeechenhanceSetAiModel_UI_MTG, voice_model},
          {control::SetAispeechenhanceRegistrationMTG, final}};
}

class VoiceBuilding : public RegistryBench, public ::testing::Test {
 protected:
  VoiceBuilding() {
    chains.ai_speech->during("MakeAIModel", [this] { make_file(enrolled(), "enrolled voice"); });
  }
  void build() { touch(20); }
  std::string make_call() const {
    for (const std::string& call : chains.ai_speech->calls()) {
      if (call.starts_with("MakeAIModel")) return call;
    }
    return {};
  }
};

TEST_F(VoiceBuilding, MakesAModelOfTheRecordingThatTheDriverNames) {
  start();
  build();
  EXPECT_THAT(make_call(), HasSubstr(", " + recordings() + "/声.wav, " + enrolled() + ","));
  EXPECT_EQ(written(), build_writes(1, 0));
  EXPECT_EQ(text_of(published()), "enrolled voice");
  EXPECT_EQ(text_of(enrolled()), "enrolled voice");
  EXPECT_EQ(host.m_LastTrouble.Latest().text, "");
}

TEST_F(VoiceBuilding, AsksTheDriverInItsOrder) {
  start();
  build();
  auto all = asked();
  ASSERT_GE(all.size(), 9u);
  all.resize(9);
  EXPECT_THAT(
      all,
      ElementsAre(Asked{control::GetAispeechenhanceRegistrationMTG}, Asked{control::GetAispeechenhanceWavFolderMTG},
                  Asked{control::GetAispeechenhanceWavFileMTG}, Asked{control::SetAispeechenhanceRegistrationMTG, 30},
                  Asked{control::GetAispeechenhanceWavFolderMTG}, Asked{control::SetAispeechenhanceSetAiModelMTG, 1},
                  Asked{control::SetAispeechenhanceSetAiModel_UI_MTG, 1},
                  Asked{control::GetAispeechenhanceRegistrationMTG},
                  Asked{control::SetAispeechenhanceRegistrationMTG, 0}));
}

TEST_F(VoiceBuilding, SaysThatItRunsWhileItDoes) {
  std::uint32_t meanwhile = 0;
  chains.ai_speech->during("MakeAIModel", [&] { meanwhile = registration(); });
  start();
  build();
  EXPECT_EQ(meanwhile, 30u);
}

TEST_F(VoiceBuilding, ReplacesAnEarlierCopy) {
  make_file(published(), "a longer text of an earlier voice");
  start();
  build();
  EXPECT_EQ(text_of(published()), "enrolled voice");
}

TEST_F(VoiceBuilding, PublishesInTheFolderOfItsEnd) {
  const std::string moved = (folder.path() / "moved").string();
  std::filesystem::create_directories(moved);
  chains.ai_speech->during("MakeAIModel", [&] {
    make_file(enrolled());
    device.set_text(control::GetAispeechenhanceWavFolderMTG, to_utf16(moved));
  });
  start();
  build();
  EXPECT_TRUE(std::filesystem::exists(moved + "/EnhanceModel.bin"));
  EXPECT_FALSE(std::filesystem::exists(published()));
}

class FailedVoiceBuilding : public VoiceBuilding, public ::testing::WithParamInterface<int> {};

TEST_P(FailedVoiceBuilding, TakesTheCopyAwaySwitchesTheModelOffAndReports) {
  make_file(published());
  chains.ai_speech->answer("MakeAIModel", GetParam());
  start();
  build();
  EXPECT_EQ(written(), build_writes(0, static_cast<std::uint32_t>(GetParam())));
  EXPECT_FALSE(std::filesystem::exists(published()));
  EXPECT_EQ(host.m_LastTrouble.Latest().text, "the enrolment failed: result " + std::to_string(GetParam()));
}

// Of the warnings, 103 says that the enrolment was quit.
INSTANTIATE_TEST_SUITE_P(Statuses, FailedVoiceBuilding, Values(1, 10, 11, 15, 103));

TEST_F(VoiceBuilding, FailsWithoutAnOpenChain) {
  host.m_AudioControl.SetAISpeechEnhanceClose();
  start();
  build();
  EXPECT_EQ(written(), build_writes(0, 0x80004005));
}

class RegistrationFound : public VoiceBuilding, public ::testing::WithParamInterface<std::uint32_t> {
 protected:
  RegistrationFound() {
    chains.ai_speech->during("MakeAIModel", [this] {
      make_file(enrolled());
      set_registration(GetParam());
    });
  }
};

class RegistrationKept : public RegistrationFound {};

TEST_P(RegistrationKept, AfterABuildThatSucceeded) {
  start();
  build();
  EXPECT_EQ(written(), build_writes(1, GetParam()));
}

TEST_P(RegistrationKept, AfterABuildThatFailed) {
  chains.ai_speech->answer("MakeAIModel", 11);
  start();
  build();
  EXPECT_EQ(written(), build_writes(0, GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Found, RegistrationKept, Values(40, 15, 103));

class RegistrationReplaced : public RegistrationFound {};

TEST_P(RegistrationReplaced, AfterABuildThatSucceeded) {
  start();
  build();
  EXPECT_EQ(written(), build_writes(1, 0));
}

TEST_P(RegistrationReplaced, AfterABuildThatFailed) {
  chains.ai_speech->answer("MakeAIModel", 11);
  start();
  build();
  EXPECT_EQ(written(), build_writes(0, 11));
}

INSTANTIATE_TEST_SUITE_P(Found, RegistrationReplaced, Values(0, 14, 20, 30, 41, 102));

TEST_F(VoiceBuilding, ReportsItsStatusWhenTheRegistrationCantBeRead) {
  chains.ai_speech->answer("MakeAIModel", 11);
  chains.ai_speech->during("MakeAIModel", [this] { device.fail(control::GetAispeechenhanceRegistrationMTG, 31); });
  start();
  build();
  EXPECT_EQ(written(), build_writes(0, 11));
}

TEST_F(VoiceBuilding, NeedsARegistrationThatCanBeRead) {
  device.fail(control::GetAispeechenhanceRegistrationMTG, 31);
  start();
  build();
  EXPECT_THAT(make_call(), IsEmpty());
}

TEST_F(VoiceBuilding, GoesOnWithWhatCanBeReadOfThePath) {
  device.fail(control::GetAispeechenhanceWavFileMTG, 31);
  log.clear();
  start();
  build();
  EXPECT_THAT(make_call(), HasSubstr(", " + recordings() + "/, "));
  EXPECT_THAT(log.traces(), Contains(StartsWith("[ChangeRegistryThread]")));
  EXPECT_EQ(written(), build_writes(1, 0));
}

TEST_F(VoiceBuilding, PublishesNothingWithoutAFolder) {
  device.fail(control::GetAispeechenhanceWavFolderMTG, 31);
  start();
  build();
  EXPECT_THAT(make_call(), HasSubstr(", 声.wav, "));
  EXPECT_EQ(written(), build_writes(1, 0));
  EXPECT_FALSE(std::filesystem::exists("EnhanceModel.bin"));
}

TEST_F(VoiceBuilding, KeepsItsOutcomeWhenTheCopyFails) {
  std::filesystem::remove_all(recordings());
  start();
  build();
  EXPECT_EQ(written(), build_writes(1, 0));
  EXPECT_THAT(log.traces(), Contains(StartsWith("[ChangeRegistryThread] " + published())));
}

TEST_F(VoiceBuilding, HappensUnderTheSecondGateToo) {
  set_notebook(Notebook::beam_forming);
  start();
  build();
  EXPECT_EQ(registration(), 0u);
}

TEST_F(VoiceBuilding, IsFollowedByTheModelNumberAndTheRules) {
  start();
  device.set_number(control::GetHeadphone, 1);
  build();
  EXPECT_EQ(host.m_dwHeadPhone, 1u);
  const auto all = asked();
  const auto end = std::find(all.begin(), all.end(), Asked{control::SetAispeechenhanceRegistrationMTG, 0});
  ASSERT_NE(end, all.end());
  EXPECT_EQ(*std::next(end), Asked{control::GetAispeechenhanceModelNoMTG});
}

TEST_F(VoiceBuilding, ThatFailsAfterASuccessLeavesTheLostModel) {
  start();
  build();
  asked();
  chains.ai_speech->answer("MakeAIModel", 11);
  build();
  auto expected = build_writes(0, 11);
  expected.push_back({control::SetAispeechenhanceSetAiModelMTG, 0});  // the rules find the file gone
  expected.push_back({control::SetAispeechenhanceSetAiModel_UI_MTG, 0});
  EXPECT_EQ(written(), expected);
  EXPECT_FALSE(std::filesystem::exists(published()));
}

// ---- The abort

class VoiceQuit : public VoiceBuilding {
 protected:
  void start() { RegistryBench::start(ChangeRegistryThread_Quit); }
  std::size_t quits() const { return chains.ai_speech->count("QuitMakeAIModel"); }
};

TEST_F(VoiceQuit, ReportsWhatTheChainAnswers) {
  start();
  touch(40);
  EXPECT_EQ(quits(), 1u);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetAispeechenhanceRegistrationMTG, 0}));
  chains.ai_speech->answer("QuitMakeAIModel", 15);
  touch(40);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetAispeechenhanceRegistrationMTG, 15}));
}

TEST_F(VoiceQuit, LeavesAllOtherValuesAlone) {
  start();
  for (const std::uint32_t value : {0u, 20u, 30u, 39u, 41u}) {
    touch(value);
    EXPECT_THAT(asked(), ElementsAre(Asked{control::GetAispeechenhanceRegistrationMTG})) << value;
  }
  device.fail(control::GetAispeechenhanceRegistrationMTG, 31);
  touch(40);
  EXPECT_EQ(quits(), 0u);
}

class RunningBuild : public VoiceQuit {
 protected:
  /// A build of 500 ms that answers 103 once it was quit; 100 ms after its start the abort is asked for.
  void quit_a_build() {
    chains.ai_speech->during("MakeAIModel", [this] { machine.scheduler().sleep_ms(500); });
    chains.ai_speech->during("QuitMakeAIModel", [this] {
      quit_at_ms = now_ms();
      make_file(published());
    });
    chains.ai_speech->answer("MakeAIModel", 103);
    RegistryBench::start(ChangeRegistryThread);
    RegistryBench::start(ChangeRegistryThread_Quit);
    set_registration(20);
    touch();
    const std::uint64_t began = now_ms();
    machine.run_for(100);
    touch(40);
    EXPECT_EQ(quit_at_ms, began + 100) << "while the build runs";
    machine.run_for(1000);
  }

  std::uint64_t quit_at_ms = 0;
};

TEST_F(RunningBuild, IsQuitByTheOtherThreadWhoseStatusStays) {
  chains.ai_speech->answer("QuitMakeAIModel", 15);
  quit_a_build();
  EXPECT_EQ(registration(), 15u);
  EXPECT_FALSE(std::filesystem::exists(published()));
  EXPECT_EQ(quits(), 1u);
  EXPECT_EQ(device.number(control::GetAispeechenhanceSetAiModelMTG), 0u);
  EXPECT_EQ(host.m_LastTrouble.Latest().text, "") << "this was wanted";
}

TEST_F(RunningBuild, ReportsItsOwnStatusAfterAQuitThatSucceeded) {
  quit_a_build();
  EXPECT_EQ(registration(), 103u);
}

TEST_F(RunningBuild, IsFollowedByTheChangesThatCameMeanwhile) {
  chains.ai_speech->during("MakeAIModel", [this] { machine.scheduler().sleep_ms(500); });
  RegistryBench::start(ChangeRegistryThread);
  touch(20);
  machine.run_for(100);
  touch(30);
  asked();
  machine.run_for(1000);
  const auto all = asked();
  EXPECT_EQ(std::count(all.begin(), all.end(), Asked{control::GetAispeechenhanceModelNoMTG}), 2);
}

class RegistryThreadsAtOnce : public RegistryBench, public ::testing::Test {
 protected:
  RegistryThreadsAtOnce() : RegistryBench(Notebook::ai_speech, sim::Schedule::free) {}
};

TEST_F(RegistryThreadsAtOnce, ServeARowOfRequests) {
  chains.ai_speech->during("MakeAIModel", [this] {
    machine.scheduler().sleep_ms(7);
    make_file(enrolled());
  });
  RegistryBench::start(ChangeRegistryThread);
  RegistryBench::start(ChangeRegistryThread_Quit);
  for (std::uint32_t round = 0; round < 50; ++round) {
    set_registration(20);
    touch();
    machine.run_for(round % 10);
    set_registration(40);
    touch();
    machine.run_for(10);
    touch();
    machine.run_for(10);
    EXPECT_NE(registration(), 20u);
    EXPECT_NE(registration(), 30u);
  }
  EXPECT_GE(chains.ai_speech->count("QuitMakeAIModel"), 35u);
}

}  // namespace
}  // namespace sonivo::test
