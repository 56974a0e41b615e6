// Enrolment of a voice.

#include <chrono>
#include <future>

#include "ai_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Values;

class Enrolment : public AIBench, public ::testing::Test {
 protected:
  Enrolment() { relay_.SetAISpeechEnhanceWavFile(voice().c_str()); }

  std::string voice() const { return (folder_.path() / "user" / "voice.wav").string(); }
  std::string make_call(const char* const (&row)[3]) const {
    return "MakeAIModel(" + model(row[1]) + ", " + model(row[2]) + ", " + voice() + ", " + enrolled() + ", 0)";
  }
  /// The calls of the steps before MakeAIModel, on a relay that hasn't streamed yet.
  std::vector<std::string> preparation() const {
    return {call("SetAIModel", model(kModels3[0])),
            "SetAISpeechEnhanceStrength(1)",
            "SetDataLength(480)",
            "SetSamplingRate(48000)",
            "SetSamplingRate(48000)",
            "SetChannel(2)",
            "SetKeyReductionActive(0)",
            "SetNoiseReductionActive(0)",
            "SetBeamFormingActive(0)"};
  }
  /// Enrols, on what is prepared so far; the calls are those from here on.
  int enrol() {
    chain_.clear();
    return relay_.MakeAISpeechEnhanceModel(true);
  }
  /// Sampling rates, lengths and channel counts that were set.
  std::vector<std::string> shape() const {
    std::vector<std::string> kept;
    for (const std::string& each : chain_.calls()) {
      if (each.starts_with("SetDataLength") || each.starts_with("SetSamplingRate") || each.starts_with("SetChannel")) {
        kept.push_back(each);
      }
    }
    return kept;
  }
};

TEST_F(Enrolment, NeedsAnOpenChain) {
  EXPECT_EQ(enrol(), status_bits(0x80004005));
  EXPECT_EQ(bench_.log.count("[cap] MakeAISpeechEnhanceModel::m_AISpeechEnhanceIsOpen = false.\n"), 1u);
  EXPECT_THAT(chain_.calls(), IsEmpty());
}

TEST_F(Enrolment, PreparesTheChainMakesTheModelAndUsesIt) {
  store_strength(0.5f);
  chain_.during("MakeAIModel", [this] { make_file(enrolled()); });
  open();
  EXPECT_EQ(enrol(), 0);
  auto expected = preparation();
  expected.push_back(make_call(kModels3));
  for (int i = 0; i < 2; ++i) {  // by the change of the state, and once more after it
    expected.push_back(call("SetAIModel", enrolled()));
    expected.push_back("SetAISpeechEnhanceStrength(0.5)");
  }
  EXPECT_THAT(chain_.calls(), ElementsAreArray(expected));
  EXPECT_TRUE(exists(enrolled()));
}

TEST_F(Enrolment, SwapsOnceWhenTheEnrolledModelWasInUseAlready) {
  make_file(enrolled());
  open();
  ASSERT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_EQ(enrol(), 0);
  auto expected = preparation();
  expected.push_back(make_call(kModels3));
  expected.push_back(call("SetAIModel", enrolled()));
  expected.push_back("SetAISpeechEnhanceStrength(1)");
  EXPECT_THAT(chain_.calls(), ElementsAreArray(expected));
}

TEST_F(Enrolment, TakesTheModelsOfTheRow) {
  relay_.SetAISpeechEnhanceModelNo(1);
  open();
  enrol();
  EXPECT_EQ(chain_.calls().front(), call("SetAIModel", model(kModels1[0])));
  EXPECT_EQ(chain_.count(make_call(kModels1)), 1u);
  relay_.SetAISpeechEnhanceModelNo(2);
  enrol();
  EXPECT_EQ(chain_.calls().front(), call("SetAIModel", model(kModels2[0])));
  EXPECT_EQ(chain_.count(make_call(kModels2)), 1u);
}

TEST_F(Enrolment, PaysNoHeedToFailuresOfItsPreparation) {
  for (const char* name : {"SetAISpeechEnhanceStrength", "SetDataLength", "SetSamplingRate", "SetChannel",
                           "SetKeyReductionActive", "SetNoiseReductionActive", "SetBeamFormingActive", "SetAIModel"}) {
    chain_.answer(name, 6);
  }
  open();
  enrol();
  EXPECT_EQ(chain_.count(make_call(kModels3)), 1u);
}

TEST_F(Enrolment, SetsTheRateOfTheDefaultMicrophoneAfterThatOfTheStream) {
  start();
  bench_.record(pcm_format(44100, 16, 1), microphone(16, 1));
  bench_.machine.run_for(5);
  enrol();
  EXPECT_THAT(shape(),
              ElementsAre("SetDataLength(441)", "SetSamplingRate(44100)", "SetSamplingRate(48000)", "SetChannel(1)"));
}

TEST_F(Enrolment, SetsTheRateOnceWhenBothAreEqual) {
  start();
  record_stereo(bench_);
  bench_.machine.run_for(5);
  enrol();
  EXPECT_THAT(shape(), ElementsAre("SetDataLength(480)", "SetSamplingRate(48000)", "SetChannel(2)"));
}

TEST_F(Enrolment, TakesTheRateOfTheDefaultMicrophoneBeforeTheFirstStream) {
  bench_.machine.endpoints().add(
      {.id = "{0.0.1.00000000}.{studio}", .name = "Studio Microphone", .flow = DataFlow::capture, .rate_hz = 44100});
  bench_.machine.endpoints().set_default(DataFlow::capture, "{0.0.1.00000000}.{studio}");
  open();
  enrol();
  EXPECT_THAT(shape(),
              ElementsAre("SetDataLength(480)", "SetSamplingRate(48000)", "SetSamplingRate(44100)", "SetChannel(2)"));
}

class EnrolmentWithoutMixFormat : public Enrolment, public ::testing::WithParamInterface<Step> {};

TEST_P(EnrolmentWithoutMixFormat, Takes48000ForTheRateOfTheDefaultMicrophone) {
  start();
  bench_.record(pcm_format(44100, 16, 2), microphone());
  bench_.machine.run_for(5);
  bench_.machine.script().fail(GetParam(), kFail);
  enrol();
  EXPECT_THAT(shape(),
              ElementsAre("SetDataLength(441)", "SetSamplingRate(44100)", "SetSamplingRate(48000)", "SetChannel(2)"));
}

INSTANTIATE_TEST_SUITE_P(Steps, EnrolmentWithoutMixFormat,
                         Values(Step::endpoints_default, Step::endpoint_activate_client, Step::client_mix_format),
                         [](const ::testing::TestParamInfo<Step>& step) {
                           return std::string(sim::to_string(step.param));
                         });

class EnrolmentFailure : public Enrolment, public ::testing::WithParamInterface<int> {};

TEST_P(EnrolmentFailure, DeletesTheModelFileAndAnswersTheStatus) {
  make_file(enrolled());
  chain_.answer("MakeAIModel", GetParam());
  open();
  EXPECT_EQ(enrol(), GetParam());
  EXPECT_FALSE(exists(enrolled()));
  EXPECT_EQ(chain_.calls().back(), make_call(kModels3));  // the row's model of the preparation stays
}

// Of the warnings, 103 says that the enrolment was quit.
INSTANTIATE_TEST_SUITE_P(Statuses, EnrolmentFailure, Values(1, 10, 11, 17, 103));

TEST_F(Enrolment, LeavesTheStateWhenItFails) {
  make_file(enrolled());
  chain_.answer("MakeAIModel", 11);
  open();
  EXPECT_EQ(enrol(), 11);
  make_file(enrolled());
  chain_.clear();
  EXPECT_EQ(relay_.UpdateAISpeechEnhanceSetAiModelState(true), 1);
  EXPECT_EQ(chain_.count(call("SetAIModel", enrolled())), 1u);  // it was still off
}

TEST_F(Enrolment, DeletesNoDirectory) {
  std::filesystem::create_directories(enrolled());
  chain_.answer("MakeAIModel", 9);
  open();
  EXPECT_EQ(enrol(), 9);
  EXPECT_TRUE(std::filesystem::is_directory(enrolled()));
}

TEST_F(Enrolment, DoesWithoutAModelFileToDelete) {
  chain_.answer("MakeAIModel", 9);
  open();
  EXPECT_EQ(enrol(), 9);
  EXPECT_FALSE(exists(enrolled()));
}

TEST_F(Enrolment, AnswersTheFailureOfTheLastSwapButKeepsTheModel) {
  chain_.during("MakeAIModel", [this] {
    make_file(enrolled());
    chain_.answer("SetAIModel", 8);
  });
  open();
  EXPECT_EQ(enrol(), 8);
  EXPECT_TRUE(exists(enrolled()));
}

TEST_F(Enrolment, AnswersTheFailureOfTheLastStrengthButKeepsTheModel) {
  chain_.during("MakeAIModel", [this] {
    make_file(enrolled());
    chain_.answer("SetAISpeechEnhanceStrength", 6);
  });
  open();
  EXPECT_EQ(enrol(), 6);
  EXPECT_TRUE(exists(enrolled()));
}

TEST_F(Enrolment, EndsWithTheRowsModelWhenTheChainLeftNoFile) {
  make_file(model(kModels3[0]));
  open();
  EXPECT_EQ(enrol(), 0);
  EXPECT_EQ(chain_.count(call("SetAIModel", model(kModels3[0]))), 3u);  // preparation, change of the state, the end
  EXPECT_EQ(chain_.count(call("SetAIModel", enrolled())), 0u);
}

TEST_F(Enrolment, HoldsItsLockWhileTheModelIsMade) {
  std::future<int> change;
  bool waited = false;
  chain_.during("MakeAIModel", [&] {
    change = std::async(std::launch::async, [this] { return relay_.UpdateAISpeechEnhanceSetAiModelState(true); });
    waited = change.wait_for(std::chrono::milliseconds(20)) == std::future_status::timeout;
    make_file(enrolled());
  });
  open();
  EXPECT_EQ(enrol(), 0);
  EXPECT_TRUE(waited);
  EXPECT_EQ(change.get(), 1);
}

class EnrolmentLock : public Enrolment {
 protected:
  EnrolmentLock() {
    chain_.during("MakeAIModel", [this] {
      make_file(enrolled());
      made_ = true;
    });
    // An update to the old state must not come as late as after the change: it would change the state back.
    chain_.during("SetAISpeechEnhanceStrength", [this] {
      if (made_) return;  // the lock is held then
      for (const auto& each : updates_) each.wait();
    });
    open();
  }
  /// Whether another thread that asks for the lock is still without it after this time.
  bool is_held(std::chrono::milliseconds patience) {
    // An update to the state that is there already asks for the lock and for nothing else.
    updates_.push_back(std::async(
        std::launch::async, [this, state = made_] { return relay_.UpdateAISpeechEnhanceSetAiModelState(state); }));
    return updates_.back().wait_for(patience) == std::future_status::timeout;
  }

  std::vector<bool> held_;

 private:
  bool made_ = false;
  std::vector<std::future<int>> updates_;
};

TEST_F(EnrolmentLock, IsHeldWhileAModelIsSetBeforeAndAfterTheMaking) {
  chain_.during("SetAIModel", [this] { held_.push_back(is_held(std::chrono::milliseconds(20))); });
  EXPECT_EQ(enrol(), 0);
  EXPECT_THAT(held_, ElementsAre(true, true, true));  // preparation, change of the state, the end
}

TEST_F(EnrolmentLock, IsFreeWhileThePreparationSetsTheStrength) {
  chain_.during("SetAISpeechEnhanceStrength", [this] {
    if (held_.empty()) held_.push_back(is_held(std::chrono::seconds(10)));
  });
  EXPECT_EQ(enrol(), 0);
  EXPECT_THAT(held_, ElementsAre(false));
}

TEST_F(Enrolment, CanBeQuitWhileTheModelIsMade) {
  chain_.during("MakeAIModel", [this] { EXPECT_EQ(relay_.QuitAISpeechEnhanceModel(), 0); });
  chain_.answer("MakeAIModel", 103);
  open();
  EXPECT_EQ(enrol(), 103);
  EXPECT_EQ(chain_.count("QuitMakeAIModel"), 1u);
}

TEST_F(Enrolment, CutsPathsAfter259Bytes) {
  const std::string longest(259, 'p');
  relay_.SetAISpeechEnhancePmodel((longest + "lost").c_str());
  relay_.SetAISpeechEnhanceWavFile((longest + "lost").c_str());
  open();
  enrol();
  EXPECT_EQ(chain_.count("MakeAIModel(" + model(kModels3[1]) + ", " + model(kModels3[2]) + ", " + longest + ", " +
                         longest + ", 0)"),
            1u);
}

TEST_F(Enrolment, ForgetsTheRestOfALongerPathThatWasSetBefore) {
  relay_.SetAISpeechEnhancePmodel("/a/much/longer/path/of/a/model.bin");
  relay_.SetAISpeechEnhanceWavFile("/a/much/longer/path/of/a/voice.wav");
  relay_.SetAISpeechEnhancePmodel("/m");
  relay_.SetAISpeechEnhanceWavFile("/v");
  open();
  enrol();
  EXPECT_EQ(chain_.count("MakeAIModel(" + model(kModels3[1]) + ", " + model(kModels3[2]) + ", /v, /m, 0)"), 1u);
}

class QuitEnrolment : public AIBench, public ::testing::Test {};

TEST_F(QuitEnrolment, DeletesTheModelFileWhenTheChainReportsAnything) {
  make_file(enrolled());
  chain_.answer("QuitMakeAIModel", 15);
  EXPECT_EQ(relay_.QuitAISpeechEnhanceModel(), 15);
  EXPECT_FALSE(exists(enrolled()));
}

TEST_F(QuitEnrolment, KeepsTheModelFileWhenTheChainReportsSuccess) {
  make_file(enrolled());
  EXPECT_EQ(relay_.QuitAISpeechEnhanceModel(), 0);
  EXPECT_TRUE(exists(enrolled()));
}

TEST_F(QuitEnrolment, DeletesNoDirectory) {
  std::filesystem::create_directories(enrolled());
  chain_.answer("QuitMakeAIModel", 15);
  EXPECT_EQ(relay_.QuitAISpeechEnhanceModel(), 15);
  EXPECT_TRUE(std::filesystem::is_directory(enrolled()));
}

}  // namespace
}  // namespace sonivo::test
