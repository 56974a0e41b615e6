// An enrolment that another thread pauses, resumes and quits, and what the rest of the chain does meanwhile.

#include <gmock/gmock.h>

#include "enrolment_bench.h"
#include "log_gate.h"

namespace sonivo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

class EnrolmentSteering : public Enrolment {
 protected:
  void SetUp() override { ASSERT_EQ(open(), 0); }

  static std::string not_running(const std::string& op, int running, int quit) {
    return op + ": MakeAIModel is not running, make_model_running=" + std::to_string(running) +
           ", make_model_quit=" + std::to_string(quit) + ", return ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_RUNNING\n";
  }
  /// All three, with that line each.
  void expect_not_running(int running, int quit) {
    lines("");
    EXPECT_EQ(enhancer_.PauseMakeAIModel(), ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_RUNNING);
    EXPECT_EQ(enhancer_.ResumeMakeAIModel(), ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_RUNNING);
    EXPECT_EQ(enhancer_.QuitMakeAIModel(), ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_RUNNING);
    const std::vector<std::string> told = lines("");
    for (const char* op : {"PauseMakeAIModel", "ResumeMakeAIModel", "QuitMakeAIModel"}) {
      EXPECT_THAT(told, Contains(not_running(op, running, quit)));
    }
  }
  static bool is_going_on(std::future<int>& result) {
    return result.wait_for(std::chrono::milliseconds(100)) == std::future_status::timeout;
  }
};

TEST_F(EnrolmentSteering, NeedsAnEnrolment) { expect_not_running(0, 0); }

TEST_F(EnrolmentSteering, PauseHoldsTheFeedAndResumeLetsItGoOn) {
  auto result = start_making({.seconds = 2});
  EXPECT_EQ(enhancer_.PauseMakeAIModel(), 0);
  EXPECT_EQ(enhancer_.PauseMakeAIModel(), 0) << "it is paused already";
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the block that is under way
  const float progress = enhancer_.MakeAIModelProgress();
  EXPECT_TRUE(is_going_on(result));
  EXPECT_EQ(enhancer_.MakeAIModelProgress(), progress);
  EXPECT_LT(progress, 1.0f);
  EXPECT_EQ(enhancer_.ResumeMakeAIModel(), 0);
  EXPECT_EQ(result.get(), 0);
  EXPECT_EQ(enhancer_.MakeAIModelProgress(), 1.0f);
  EXPECT_TRUE(has_result());
  expect_not_running(0, 0);
}

TEST_F(EnrolmentSteering, ResumeNeedsAPause) {
  auto result = start_making({.seconds = 2});
  EXPECT_EQ(enhancer_.ResumeMakeAIModel(), ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_PAUSE);
  EXPECT_THAT(lines(""), Contains("ResumeMakeAIModel: return ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_PAUSE\n"));
  EXPECT_EQ(enhancer_.QuitMakeAIModel(), 0);
  EXPECT_EQ(result.get(), WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT);
}

TEST_F(EnrolmentSteering, QuitLeavesNoFile) {
  auto result = start_making({.seconds = 3});
  EXPECT_EQ(enhancer_.QuitMakeAIModel(), 0);
  EXPECT_EQ(result.get(), WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT);
  EXPECT_LT(enhancer_.MakeAIModelProgress(), 0.5f);
  EXPECT_FALSE(has_result());
  const std::vector<std::string> told = lines();
  ASSERT_GE(told.size(), 4u);
  EXPECT_THAT((std::vector(told.end() - 4, told.end())),
              ElementsAre("MakeAIModel: FifoInput quit, make_model_running=1, quit=1, pause=0\n",
                          StartsWith("MakeAIModel: FifoInput end, remain="),
                          "MakeAIModel: Encode end, make_model_running=2, quit=1, pause=0\n",
                          "MakeAIModel: Idle, make_model_running=0, quit=1, pause=0\n"));
  expect_not_running(0, 0);
}

TEST_F(EnrolmentSteering, QuitEndsAPause) {
  auto result = start_making({.seconds = 2});
  EXPECT_EQ(enhancer_.PauseMakeAIModel(), 0);
  EXPECT_TRUE(is_going_on(result));
  EXPECT_EQ(enhancer_.QuitMakeAIModel(), 0);
  EXPECT_EQ(result.get(), WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT);
  EXPECT_FALSE(has_result());
}

TEST_F(EnrolmentSteering, QuitIsForgottenWithTheEnrolment) {
  auto result = start_making({.seconds = 2});
  EXPECT_EQ(enhancer_.QuitMakeAIModel(), 0);
  EXPECT_EQ(result.get(), WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT);
  EXPECT_EQ(make(wav(Talk{})), 0);
  EXPECT_TRUE(has_result());
}

/// The encoder has got less than it can work on then.
TEST_F(EnrolmentSteering, QuitAtOnceLeavesTheProcessAlone) {
  encoder_ = folder_.write("encoder.bin", encoder_bytes(encoder_network(kEmbeddingRows, 100)));
  auto result = start_making({.seconds = 2});
  EXPECT_EQ(enhancer_.QuitMakeAIModel(), 0);
  EXPECT_EQ(result.get(), WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT);
}

TEST_F(EnrolmentSteering, AQuitEnrolmentTakesNoSteeringAnyMore) {
  LogGate gate("FifoInput quit");
  auto result = start_making({});
  EXPECT_EQ(enhancer_.QuitMakeAIModel(), 0);
  gate.wait_until_reached();
  const LogCapture capture;  // in the gate's place, whose thread stays where it is
  expect_not_running(1, 1);
  gate.open();
  EXPECT_EQ(result.get(), WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT);
}

TEST_F(EnrolmentSteering, PauseHoldsTheFileBack) {
  LogGate gate("FifoInput end");
  auto result = start_making({});
  gate.wait_until_reached();
  EXPECT_EQ(enhancer_.PauseMakeAIModel(), 0);
  gate.open();
  EXPECT_TRUE(is_going_on(result));
  EXPECT_FALSE(has_result());
  EXPECT_EQ(enhancer_.ResumeMakeAIModel(), 0);
  EXPECT_EQ(result.get(), 0);
  EXPECT_TRUE(has_result());
}

TEST_F(EnrolmentSteering, QuitBehindTheFeedLeavesNoFile) {
  LogGate gate("FifoInput end");
  auto result = start_making({});
  gate.wait_until_reached();
  EXPECT_EQ(enhancer_.PauseMakeAIModel(), 0);
  EXPECT_EQ(enhancer_.QuitMakeAIModel(), 0);
  gate.open();
  EXPECT_EQ(result.get(), WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT);
  EXPECT_FALSE(has_result());
}

TEST_F(EnrolmentSteering, EndsWithTheEncoding) {
  LogGate gate("Encode end");
  auto result = start_making({});
  gate.wait_until_reached();
  {
    const LogCapture capture;
    expect_not_running(2, 0);
  }
  gate.open();
  EXPECT_EQ(result.get(), 0);
}

TEST_F(EnrolmentSteering, NeedsNoLock) {
  LogGate gate("FifoInput end");
  auto result = start_making({});
  gate.wait_until_reached();
  auto id = std::async(std::launch::async, [this] {
    float strength = 0.0f;
    return enhancer_.GetAISpeechEnhanceStrength(&strength);
  });
  EXPECT_TRUE(is_going_on(id)) << "which an ordinary operation waits for";
  std::uint32_t bytes = 0;
  EXPECT_EQ(enhancer_.GetParamSize(&bytes), 0);
  EXPECT_EQ(enhancer_.PauseMakeAIModel(), 0);
  EXPECT_EQ(enhancer_.ResumeMakeAIModel(), 0);
  gate.open();
  EXPECT_EQ(result.get(), 0);
  EXPECT_EQ(id.get(), 0);
}

class EnrolmentBesideAStream : public EnrolmentSteering {
 protected:
  void SetUp() override {
    ASSERT_EQ(open(), 0);
    ASSERT_EQ(enhancer_.SetAISpeechEnhanceActive(1), 0);
    for (const auto set : {&CAISpeechEnhance::SetKeyReductionActive, &CAISpeechEnhance::SetNoiseReductionActive,
                           &CAISpeechEnhance::SetBeamFormingActive}) {
      ASSERT_EQ((enhancer_.*set)(0), 0);
    }
    ASSERT_EQ(enhancer_.Run(), 0);
  }

  /// The level behind so many blocks of a tone, once the chain has settled.
  double level_behind(int blocks) {
    double power = 0;
    for (int b = 0; b < blocks; ++b) {
      std::vector<float> block(480);
      for (std::size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<float>(0.2 * std::sin(2 * std::numbers::pi * 1000 * static_cast<double>(i) / 48000));
      }
      EXPECT_EQ(enhancer_.Execute(block.data()), 0) << "block " << b;
      if (b >= blocks / 2) {
        for (const float x : block) power += double{x} * double{x} / 480 / (blocks - blocks / 2);
      }
      while (!enhancer_.IsEnhancementIdle()) std::this_thread::sleep_for(kLook);
    }
    return std::sqrt(power);
  }
};

TEST_F(EnrolmentBesideAStream, LeavesTheAudioToTheCaller) {
  LogGate gate("FifoInput end");
  auto result = start_making({});
  gate.wait_until_reached();
  std::vector<float> block(480, 0.125f);
  EXPECT_EQ(enhancer_.Execute(block.data()), WARNING_AI_SPEECH_ENHANCE_BUSY);
  EXPECT_EQ(enhancer_.Execute(nullptr), WARNING_AI_SPEECH_ENHANCE_BUSY);
  EXPECT_EQ(block, std::vector<float>(480, 0.125f));
  gate.open();
  EXPECT_EQ(result.get(), 0);
  EXPECT_EQ(enhancer_.Execute(block.data()), 0);
}

TEST_F(EnrolmentBesideAStream, LetsTheStreamGoOn) {
  const double before = level_behind(60);
  EXPECT_NEAR(before, 0.2 / std::sqrt(2.0), 0.01);
  EXPECT_EQ(make(wav(Talk{})), 0);
  EXPECT_NEAR(level_behind(60), before, 0.001);
}

TEST_F(EnrolmentBesideAStream, GivesItAModelThatItTakes) {
  const double before = level_behind(60);
  base_ = folder_.write("base.bin", base_bytes({9, 9, 9, 9}));
  EXPECT_EQ(make(wav(Talk{})), 0);
  EXPECT_EQ(enhancer_.SetAIModel(out_.c_str()), 0);
  const double after = level_behind(60);
  e2e::SEModel model;
  model.load(out_, false);
  const float gain = model.execute(meridane::Matrix::Constant(1, 160, 100)).get<meridane::Matrix>("enhanced")(0) / 100;
  EXPECT_GT(std::abs(gain - 1), 0.1);
  EXPECT_LT(after, 0.6) << "or it would be clipped";
  EXPECT_NEAR(after / before, gain, 0.02 * gain);
}

}  // namespace
}  // namespace sonivo::test
