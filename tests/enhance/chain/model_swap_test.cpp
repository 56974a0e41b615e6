// SetAIModel: the change of the model while the stream runs, and what is left when it fails.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <complex>
#include <filesystem>
#include <future>
#include <numbers>
#include <thread>

#include "chain_bench.h"
#include "enhance/section_pair.h"

namespace sonivo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using Seconds = std::chrono::duration<double>;

struct ModelSwap : ChainBench {
  std::string doubling = folder.write("double.bin", gain_model(2.0f));
  std::string broken = folder.write("broken.bin", "senb and nothing more");
  std::string missing = folder / "missing.bin";
  std::string cut_short = folder.write("short.bin", "sen");

  int swap(const std::string& model) { return chain->SetAIModel(model.c_str()); }

  static constexpr double kToneHz = 1200.0;

  /// What the filter in front of the model leaves of the tone: |H(z)| of its two sections.
  static float tone_at_the_model() {
    const auto z = std::polar(1.0, -2 * std::numbers::pi * kToneHz / 16000);
    const auto response = [z](const Section& s) {
      return std::abs((double{s.b0} + double{s.b1} * z + double{s.b2} * z * z) /
                      (1.0 - double{s.a1} * z - double{s.a2} * z * z));
    };
    return static_cast<float>(0.1 * response(kHighPassFirst) * response(kHighPassSecond));
  }

  /// Plays a tone until it has come through, and answers how much louder the model makes it.
  float gain() {
    float loudest = 0.0f;
    for (int n = 0; n < 30; ++n, phase_ += kBlock) {
      Block block(kBlock);
      for (std::size_t i = 0; i < kBlock; ++i) {
        block[i] = static_cast<float>(
            0.1 * std::sin(2 * std::numbers::pi * kToneHz * static_cast<double>(phase_ + i) / 48000));
      }
      EXPECT_EQ(play(block), 0) << "block " << n;
      if (n < 20) continue;
      for (const float sample : block) loudest = std::max(loudest, std::abs(sample));
    }
    return loudest / tone_at_the_model();
  }
  std::uint16_t active() {
    std::uint16_t value = 9;
    EXPECT_EQ(chain->GetAISpeechEnhanceActive(&value), 0);
    return value;
  }
  float strength() {
    float value = -1.0f;
    EXPECT_EQ(chain->GetAISpeechEnhanceStrength(&value), 0);
    return value;
  }
  /// A change on a thread of its own, as the host makes it.
  std::future<int> swap_elsewhere(const std::string& model) {
    return std::async(std::launch::async, [this, model] { return swap(model); });
  }

 private:
  std::size_t phase_ = 0;
};

TEST_F(ModelSwap, PutsAnotherModelIntoTheRunningStream) {
  start();
  EXPECT_NEAR(gain(), 1.0f, 0.02f);
  EXPECT_EQ(swap(doubling), 0);
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
  EXPECT_EQ(swap(passing), 0);
  EXPECT_NEAR(gain(), 1.0f, 0.02f);
  EXPECT_EQ(active(), 1);
}

TEST_F(ModelSwap, EmptiesTheRings) {
  start();
  gain();
  ASSERT_EQ(swap(passing), 0);
  Block block(kBlock, 0.25f);
  for (int n = 1; n <= 12; ++n) {
    block.assign(kBlock, 0.25f);
    ASSERT_EQ(play(block), 0);
    EXPECT_EQ(block, Block(kBlock, 0.0f)) << "120 ms of silence come first, block " << n;
  }
}

TEST_F(ModelSwap, PutsTheStrengthBackToOne) {
  start();
  ASSERT_EQ(chain->SetAISpeechEnhanceStrength(0.25f), 0);
  ASSERT_EQ(swap(doubling), 0);
  EXPECT_EQ(strength(), 1.0f);
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
}

TEST_F(ModelSwap, KeepsTheChunksOfFive) {
  const std::string other = folder.write("other.bin", model_of(gains_network({1.0f}), {{"chunk-size", "3"}}));
  start();
  ASSERT_EQ(swap(other), 0);
  log.take();
  for (int n = 1; n <= 5; ++n) ASSERT_EQ(play_silence(), 0);
  EXPECT_THAT(log.take(LogLevel::info3), Contains(testing::EndsWith("], size=800\n")));
}

TEST_F(ModelSwap, WorksWhereNothingRuns) {
  ASSERT_EQ(open(), 0);
  EXPECT_EQ(swap(doubling), 0);
  bypass_beams();
  run();
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
}

TEST_F(ModelSwap, KeepsTheEnhancementOff) {
  start();
  ASSERT_EQ(chain->SetAISpeechEnhanceActive(0), 0);
  ASSERT_EQ(swap(doubling), 0);
  EXPECT_EQ(active(), 0);
  ASSERT_EQ(swap(cut_short), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(active(), 0);
  ASSERT_EQ(swap(broken), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(active(), 0);
}

TEST_F(ModelSwap, NeedsAName) {
  start();
  log.take();
  EXPECT_EQ(chain->SetAIModel(nullptr), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  EXPECT_THAT(errors(), ElementsAre("SetAIModel: model_file=null, return ERROR_AI_SPEECH_ENHANCE_NO_INIT\n"));
  EXPECT_EQ(play_silence(), 0) << "nothing is busy any more";
  ASSERT_EQ(chain->Stop(), 0);
  ASSERT_EQ(chain->Close(), 0);
  EXPECT_EQ(chain->SetAIModel(nullptr), ERROR_AI_SPEECH_ENHANCE_NO_INIT) << "looks at that first";
}

TEST_F(ModelSwap, ToAFileThatIsNotThereChangesNothing) {
  start();
  ASSERT_EQ(chain->SetAISpeechEnhanceStrength(0.5f), 0);
  log.take();
  EXPECT_EQ(swap(missing), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  EXPECT_THAT(errors(), ElementsAre("SetAIModel: return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN\n"));
  EXPECT_EQ(active(), 1);
  EXPECT_EQ(strength(), 0.5f);
  EXPECT_NEAR(gain(), 1.0f, 0.02f);
}

TEST_F(ModelSwap, ToLessThanFourBytesChangesNothing) {
  start(doubling);
  ASSERT_EQ(chain->SetAISpeechEnhanceStrength(0.5f), 0);
  for (const char* const bytes : {"", "s", "sen"}) {
    log.take();
    EXPECT_EQ(swap(folder.write("short.bin", bytes)), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
    EXPECT_THAT(errors(), ElementsAre("SetAIModel: return ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL\n"));
    EXPECT_EQ(active(), 1);
    EXPECT_EQ(strength(), 0.5f);
  }
  EXPECT_NEAR(gain(), 1.5f, 0.03f) << "half of the doubling";
}

/// The old model is gone by then, and the process lives on without one.
TEST_F(ModelSwap, ToAFileThatFailsLeavesNoModel) {
  start();
  gain();
  log.take();
  EXPECT_EQ(swap(broken), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(errors().back(), "SetAIModel: model file load error, return ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL\n");
  EXPECT_EQ(active(), 1);
  for (int n = 0; n < 20; ++n) {
    Block block(kBlock, 0.125f);
    EXPECT_EQ(play(block), WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN);
    if (n == 0) continue;  // its first part is older
    EXPECT_EQ(block, Block(kBlock, 0.125f)) << "as the chain in front left it";
  }
  EXPECT_EQ(swap(doubling), 0);
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
}

TEST_F(ModelSwap, ThatFailedLeavesStopAndClose) {
  start();
  gain();
  ASSERT_EQ(swap(broken), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(chain->Stop(), 0);
  EXPECT_EQ(chain->Run(), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL) << "with what?";
  EXPECT_EQ(chain->Stop(), ERROR_AI_SPEECH_ENHANCE_STOPPED);
  EXPECT_EQ(swap(doubling), 0);
  run();
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
  ASSERT_EQ(swap(broken), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(chain->Stop(), 0);
  EXPECT_EQ(chain->Close(), 0);
  EXPECT_EQ(open(), 0);
}

TEST_F(ModelSwap, ToAModelThatCantEnhanceIsAFailedLoad) {
  start();
  for (const std::string& model :
       {three_row_model(), model_of(gains_network({1.0f}), {{"window-type", "rectangle"}})}) {
    EXPECT_EQ(swap(folder.write("bad.bin", model)), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
    EXPECT_EQ(play_silence(), WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN);
  }
  EXPECT_EQ(swap(doubling), 0);
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
}

/// A stream of samples feeds no model of features, and the other way round.
TEST_F(ModelSwap, ToAModelOfAnotherInputIsAFailedLoad) {
  const std::string features = folder.write(
      "features.bin", model_of(e2e::test::network_bytes(3, 1, {e2e::test::dense_bytes("a", {1, 0, 0}, {0})},
                                                        {{"_input", "a"}, {"a", "_output"}}),
                               {{"feature-extractor-type", "lmfb"}, {"num-mel-bins", "3"}, {"frame-length", "25"}}));
  start();
  gain();
  EXPECT_EQ(swap(features), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(play_silence(), WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN);
  EXPECT_EQ(swap(doubling), 0);
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
}

TEST_F(ModelSwap, ToLongerChunksThanTheRingsHaveRoomForIsAFailedLoad) {
  const std::string longer = folder.write("longer.bin", model_of(gains_network({1.0f}), {{"frame-shift", "11"}}));
  start();
  EXPECT_EQ(swap(longer), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(swap(doubling), 0);
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
}

TEST_F(ModelSwap, ToAModelWithAPreprocessorGoesOnInTheRunningStream) {
  e2e::test::ModelParts parts{
      .has_preprocessor = 1,
      .preprocessor =
          "<flow><link from_node=\"_input\" from_port=\"_input\" to_node=\"_output\" to_port=\"_output\"/></flow>",
      .network = gains_network({1.0f, 2.0f})};
  parts.symbols = {{"sample-frequency", "16000"}, {"frame-length", "10"}, {"frame-shift", "10"}};
  const std::string preprocessed = folder.write("preprocessed.bin", e2e::test::model_bytes(parts));
  start();
  gain();
  EXPECT_EQ(swap(preprocessed), 0);
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
}

TEST_F(ModelSwap, OfWhatIsNoFileOpensNothing) {
  start();
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& name : {pipe, folder / "", std::string("/dev/null")}) {
    EXPECT_EQ(swap(name), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN) << name;
  }
  EXPECT_NEAR(gain(), 1.0f, 0.02f);
}

TEST_F(ModelSwap, CanBeTheLastThingBeforeStop) {
  start();
  gain();
  EXPECT_EQ(swap(doubling), 0);
  EXPECT_EQ(chain->Stop(), 0);
  ASSERT_EQ(chain->Run(), 0);
  ASSERT_TRUE(settle());
  EXPECT_NEAR(gain(), 2.0f, 0.04f);
  ASSERT_EQ(chain->SetAISpeechEnhanceActive(0), 0);
  EXPECT_EQ(swap(passing), 0);
  EXPECT_EQ(play_silence(), 0);
  EXPECT_EQ(chain->Stop(), 0) << "nothing came to the new model";
}

TEST_F(ModelSwap, CanComeBeforeTheFirstBlock) {
  start();
  EXPECT_EQ(swap(doubling), 0);
  EXPECT_EQ(chain->Stop(), 0);
}

/// The change is stopped in its middle, where it has the lock.
TEST_F(ModelSwap, MakesBlocksPassUntouched) {
  start();
  log.hold_at("FifoInput::BuffClear");
  auto change = swap_elsewhere(doubling);
  ASSERT_TRUE(log.wait_for_held());
  log.take();
  Block block(kBlock, 0.3f);
  EXPECT_EQ(chain->Execute(block.data()), WARNING_AI_SPEECH_ENHANCE_BUSY);
  EXPECT_EQ(block, Block(kBlock, 0.3f));
  EXPECT_EQ(chain->Execute(nullptr), WARNING_AI_SPEECH_ENHANCE_BUSY) << "it looks no further";
  EXPECT_THAT(warnings(), ElementsAre("Execute: busy_state = 1, return WARNING_AI_SPEECH_ENHANCE_BUSY\n",
                                      "Execute: busy_state = 1, return WARNING_AI_SPEECH_ENHANCE_BUSY\n"));
  std::uint32_t size = 0;
  EXPECT_EQ(chain->GetParamSize(&size), 0) << "which takes no lock";
  log.let_go();
  EXPECT_EQ(change.get(), 0);
  EXPECT_EQ(play(block), 0);
}

TEST_F(ModelSwap, ComesAfterTheOperationThatHasTheLock) {
  start();
  log.hold_at("FifoInput::BuffClear");
  auto reset = std::async(std::launch::async, [this] { return chain->ResetBuffer(); });
  ASSERT_TRUE(log.wait_for_held());
  auto change = swap_elsewhere(doubling);
  EXPECT_EQ(change.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
  log.let_go();
  EXPECT_EQ(reset.get(), 0);
  EXPECT_EQ(change.get(), 0);
}

TEST_F(ModelSwap, LetsTheOtherOperationsWait) {
  start();
  log.hold_at("FifoInput::BuffClear");
  auto change = swap_elsewhere(doubling);
  ASSERT_TRUE(log.wait_for_held());
  auto set = std::async(std::launch::async, [this] { return chain->SetAISpeechEnhanceStrength(0.5f); });
  EXPECT_EQ(set.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
  log.let_go();
  EXPECT_EQ(change.get(), 0);
  EXPECT_EQ(set.get(), 0);
  EXPECT_EQ(strength(), 0.5f);
}

/// The thread is kept in its chunk for longer than the change waits.
TEST_F(ModelSwap, GivesUpWhereTheModelDoesNotComeToRest) {
  start(doubling);
  log.hold_at("FifoOutput::PushData");
  for (int n = 1; n <= 5; ++n) {
    Block block(kBlock);
    ASSERT_EQ(chain->Execute(block.data()), 0);
  }
  ASSERT_TRUE(log.wait_for_held());
  ASSERT_EQ(chain->SetAISpeechEnhanceStrength(0.5f), 0);
  log.take();

  const auto begin = std::chrono::steady_clock::now();
  auto change = swap_elsewhere(passing);
  int busy = 0;
  Seconds longest{0};
  while (change.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
    Block block(kBlock, 0.3f);
    const auto before = std::chrono::steady_clock::now();
    const int code = chain->Execute(block.data());
    const Seconds took = std::chrono::steady_clock::now() - before;
    if (code != WARNING_AI_SPEECH_ENHANCE_BUSY) continue;  // the first or the last of them
    EXPECT_EQ(block, Block(kBlock, 0.3f));
    longest = std::max(longest, took);
    ++busy;
  }
  const Seconds took = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(change.get(), ERROR_AI_SPEECH_ENHANCE_TIMEOUT);
  EXPECT_THAT(errors(), ElementsAre("SetAIModel: timeout error, return ERROR_AI_SPEECH_ENHANCE_TIMEOUT\n"));
  EXPECT_GE(took.count(), 3.0) << "sixty times 50 ms";
  EXPECT_GT(busy, 10);
  EXPECT_LT(longest.count(), 1.0) << "no block waits for the lock, which is taken for 3 s";
  std::printf("longest of %d blocks during a change that waits: %.3f ms\n", busy, longest.count() * 1e3);

  EXPECT_EQ(active(), 0) << "as the caller finds it";
  EXPECT_EQ(strength(), 0.5f) << "the old model is there";
  log.let_go();
  ASSERT_TRUE(settle());
  Block block(kBlock, 0.3f);
  EXPECT_EQ(play(block), 0);
  ASSERT_EQ(chain->SetAISpeechEnhanceActive(1), 0);
  EXPECT_NEAR(gain(), 1.5f, 0.03f);
}

/// While a voice is enrolled it is the same, but for the number in the text. What is enrolled doesn't matter here.
TEST_F(ModelSwap, AnEnrolmentMakesBlocksPassUntouchedToo) {
  start();
  log.hold_at("MakeAIModel: base_model_file=");
  auto enrolment = std::async(std::launch::async, [this] {
    return chain->MakeAIModel(passing.c_str(), missing.c_str(), missing.c_str(), (folder / "out.bin").c_str(), 0);
  });
  ASSERT_TRUE(log.wait_for_held());
  log.take();
  Block block(kBlock, 0.3f);
  EXPECT_EQ(chain->Execute(block.data()), WARNING_AI_SPEECH_ENHANCE_BUSY);
  EXPECT_EQ(block, Block(kBlock, 0.3f));
  EXPECT_THAT(warnings(), ElementsAre("Execute: busy_state = 2, return WARNING_AI_SPEECH_ENHANCE_BUSY\n"));
  log.let_go();
  EXPECT_EQ(enrolment.get(), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  EXPECT_EQ(play(block), 0);
}

}  // namespace
}  // namespace sonivo::test
