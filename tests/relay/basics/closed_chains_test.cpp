// The processing objects while they are closed.

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "classic/result.h"
#include "enhance/ai_speech_enhance.h"
#include "enhance/result.h"
#include "relay/chains.h"

namespace sonivo {
namespace {

template <class Object>
class ClosedClassicChain : public testing::Test {};
using ClassicChains = testing::Types<CKeyCancel, CBeamFormingKeyCancel>;
TYPED_TEST_SUITE(ClosedClassicChain, ClassicChains);

constexpr int kInvalidArg = 6;

TYPED_TEST(ClosedClassicChain, AnswersEveryOperationWithInvalidArgument) {
  TypeParam object;
  std::array<float, 960> block{};
  std::uint16_t number = 77;
  float rate = 77.0f;
  EXPECT_EQ(object.Close(), kInvalidArg);
  EXPECT_EQ(object.Execute(block.data()), kInvalidArg);
  EXPECT_EQ(object.SetParam(block.data()), kInvalidArg);
  EXPECT_EQ(object.GetParamID(&number), kInvalidArg);
  EXPECT_EQ(object.SetKeyReductionActive(1), kInvalidArg);
  EXPECT_EQ(object.GetKeyReductionActive(&number), kInvalidArg);
  EXPECT_EQ(object.SetNoiseReductionActive(1), kInvalidArg);
  EXPECT_EQ(object.GetNoiseReductionActive(&number), kInvalidArg);
  EXPECT_EQ(object.SetSamplingRate(48000.0f), kInvalidArg);
  EXPECT_EQ(object.GetSamplingRate(&rate), kInvalidArg);
  EXPECT_EQ(object.SetChannel(2), kInvalidArg);
  EXPECT_EQ(object.GetChannel(&number), kInvalidArg);
  EXPECT_EQ(object.SetDataLength(480), kInvalidArg);
  EXPECT_EQ(object.GetDataLength(&number), kInvalidArg);
  EXPECT_EQ(number, 77);
  EXPECT_EQ(rate, 77.0f);
}

TYPED_TEST(ClosedClassicChain, DoesNotOpenWithoutParameters) {
  TypeParam object;
  EXPECT_EQ(object.Open(nullptr, 48000.0f, 2, 480), kInvalidArg);
  EXPECT_EQ(object.Close(), kInvalidArg);
}

TYPED_TEST(ClosedClassicChain, RefusesNullPointers) {
  const TypeParam object;
  std::uint16_t number = 77;
  EXPECT_EQ(object.GetVersion(nullptr, &number), kInvalidArg);
  EXPECT_EQ(object.GetVersion(&number, nullptr), kInvalidArg);
  EXPECT_EQ(object.GetParamSize(nullptr), kInvalidArg);
  EXPECT_EQ(number, 77);
}

TEST(ClosedKeyCancel, TellsItsVersionAndParameterSize) {
  const CKeyCancel object;
  std::uint16_t major = 77;
  std::uint16_t minor = 77;
  std::uint32_t size = 0;
  EXPECT_EQ(object.GetVersion(&major, &minor), 0);
  EXPECT_EQ(major, 0);
  EXPECT_EQ(minor, 4);
  EXPECT_EQ(object.GetParamSize(&size), 0);
  EXPECT_EQ(size, 15808u);
}

TEST(ClosedBeamFormingKeyCancel, TellsItsVersionAndParameterSize) {
  const CBeamFormingKeyCancel object;
  std::uint16_t major = 77;
  std::uint16_t minor = 77;
  std::uint32_t size = 0;
  EXPECT_EQ(object.GetVersion(&major, &minor), 0);
  EXPECT_EQ(major, 1);
  EXPECT_EQ(minor, 0);
  EXPECT_EQ(object.GetParamSize(&size), 0);
  EXPECT_EQ(size, 32636u);
}

TEST(ClosedBeamFormingKeyCancel, AnswersTheBeamSwitchWithInvalidArgumentToo) {
  CBeamFormingKeyCancel object;
  std::uint16_t active = 77;
  EXPECT_EQ(object.SetBeamFormingActive(1), kInvalidArg);
  EXPECT_EQ(object.GetBeamFormingActive(&active), kInvalidArg);
  EXPECT_EQ(active, 77);
}

TEST(ClosedAISpeechEnhance, TellsItsVersionAndTheParameterSizeOfItsBeamformer) {
  const CAISpeechEnhance object;
  std::uint16_t major = 77;
  std::uint16_t minor = 77;
  std::uint32_t size = 0;
  EXPECT_EQ(object.GetVersion(&major, &minor), 0);
  EXPECT_EQ(major, 1);
  EXPECT_EQ(minor, 7);
  EXPECT_EQ(object.GetParamSize(&size), 0);
  EXPECT_EQ(size, 32636u);
}

TEST(ClosedAISpeechEnhance, RefusesNullPointersWithInvalidArgument) {
  const CAISpeechEnhance object;
  std::uint16_t number = 77;
  EXPECT_EQ(object.GetVersion(nullptr, &number), 6);
  EXPECT_EQ(object.GetVersion(&number, nullptr), 6);
  EXPECT_EQ(object.GetParamSize(nullptr), 6);
}

TEST(ClosedAISpeechEnhance, AnswersEveryOperationWithNoInit) {
  constexpr int kNoInit = 5;
  CAISpeechEnhance object;
  std::array<float, 960> block{};
  std::array<char, 64> text{};
  std::uint16_t number = 77;
  float value = 77.0f;
  EXPECT_EQ(object.Run(), kNoInit);
  EXPECT_EQ(object.Stop(), kNoInit);
  EXPECT_EQ(object.Execute(block.data()), kNoInit);
  EXPECT_EQ(object.ResetBuffer(), kNoInit);
  EXPECT_EQ(object.SetParam(&number), kNoInit);
  EXPECT_EQ(object.GetParamID(&number), kNoInit);
  EXPECT_EQ(object.SetAIModel("model.bin"), kNoInit);
  EXPECT_EQ(object.GetAIModelID(text.data()), kNoInit);
  EXPECT_EQ(object.SetAISpeechEnhanceActive(1), kNoInit);
  EXPECT_EQ(object.GetAISpeechEnhanceActive(&number), kNoInit);
  EXPECT_EQ(object.SetAISpeechEnhanceStrength(1.0f), kNoInit);
  EXPECT_EQ(object.GetAISpeechEnhanceStrength(&value), kNoInit);
  EXPECT_EQ(object.SetBeamFormingActive(1), kNoInit);
  EXPECT_EQ(object.GetBeamFormingActive(&number), kNoInit);
  EXPECT_EQ(object.SetKeyReductionActive(1), kNoInit);
  EXPECT_EQ(object.GetKeyReductionActive(&number), kNoInit);
  EXPECT_EQ(object.SetNoiseReductionActive(1), kNoInit);
  EXPECT_EQ(object.GetNoiseReductionActive(&number), kNoInit);
  EXPECT_EQ(object.SetSamplingRate(48000.0f), kNoInit);
  EXPECT_EQ(object.GetSamplingRate(&value), kNoInit);
  EXPECT_EQ(object.SetChannel(2), kNoInit);
  EXPECT_EQ(object.GetChannel(&number), kNoInit);
  EXPECT_EQ(object.SetDataLength(480), kNoInit);
  EXPECT_EQ(object.GetDataLength(&number), kNoInit);
  EXPECT_EQ(object.MakeAIModel("base", "encoder", "voice.wav", "out", 0), kNoInit);
  EXPECT_EQ(object.PauseMakeAIModel(), kNoInit);
  EXPECT_EQ(object.ResumeMakeAIModel(), kNoInit);
  EXPECT_EQ(object.QuitMakeAIModel(), kNoInit);
  EXPECT_EQ(object.OpenRecFile("out.wav"), kNoInit);
  EXPECT_EQ(object.Rec(block.data()), kNoInit);
  EXPECT_EQ(object.CloseRecFile(), kNoInit);
  EXPECT_EQ(number, 77);
  EXPECT_EQ(value, 77.0f);
}

TEST(ClosedAISpeechEnhance, IsAlreadyClosed) {
  CAISpeechEnhance object;
  EXPECT_EQ(object.Close(), 14);
}

TEST(ClosedAISpeechEnhance, DoesNotOpenWithParametersThatItsBeamformerRefuses) {
  CAISpeechEnhance object;
  const std::vector<std::uint16_t> parameters(32636 / 2);
  EXPECT_EQ(object.Open(parameters.data(), "/nowhere/model.bin", 48000.0f, 2, 480, 20.0f, 20.0f), 2);
  EXPECT_EQ(object.Close(), 14);
}

TEST(ResultCodes, OfTheClassicChainsAreOneToSeven) {
  EXPECT_EQ(ERROR_BEAMFORMING_KEY_CANCEL_MEMORY_EMPTY, 1);
  EXPECT_EQ(ERROR_BEAMFORMING_KEY_CANCEL_PARAM_VERSION, 2);
  EXPECT_EQ(ERROR_BEAMFORMING_KEY_CANCEL_SAMPLING_RATE, 3);
  EXPECT_EQ(ERROR_BEAMFORMING_KEY_CANCEL_CHANNEL_NUM, 4);
  EXPECT_EQ(ERROR_BEAMFORMING_KEY_CANCEL_NO_INIT, 5);
  EXPECT_EQ(ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG, 6);
  EXPECT_EQ(ERROR_BEAMFORMING_KEY_CANCEL_DATA_LENGTH, 7);
}

TEST(ResultCodes, OfTheEnhancerAreOneToTwentyAndItsWarningsAboveAHundred) {
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY, 1);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_PARAM_VERSION, 2);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_SAMPLING_RATE, 3);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_CHANNEL_NUM, 4);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_NO_INIT, 5);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG, 6);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH, 7);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL, 8);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_FILE_OPEN, 9);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT, 10);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL, 11);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_FILE_WRITE, 12);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_ALREADY_OPEND, 13);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED, 14);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_RUNNING, 15);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_PAUSE, 16);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_LOW_SNR, 17);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_TIMEOUT, 18);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_RUNNING, 19);
  EXPECT_EQ(ERROR_AI_SPEECH_ENHANCE_STOPPED, 20);
  EXPECT_EQ(WARNING_AI_SPEECH_ENHANCE_BUFF_OVERFLOW, 101);
  EXPECT_EQ(WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN, 102);
  EXPECT_EQ(WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT, 103);
  EXPECT_EQ(WARNING_AI_SPEECH_ENHANCE_BUSY, 105);
}

// The capture path sees the objects through their adapters.
TEST(RealChains, AreTheThreeObjects) {
  const Chains chains = MakeChains();
  struct Expected {
    Chain& chain;
    std::uint16_t major, minor;
    std::uint32_t size;
    int closed;
    int close;
  };
  const Expected all[] = {{*chains.key_cancel, 0, 4, 15808, 6, 6},
                          {*chains.beam_forming, 1, 0, 32636, 6, 6},
                          {*chains.ai_speech, 1, 7, 32636, 5, 14}};
  for (const auto& [chain, major, minor, size, closed, close] : all) {
    std::uint16_t its_major = 77;
    std::uint16_t its_minor = 77;
    std::uint32_t its_size = 0;
    std::uint16_t frames = 0;
    EXPECT_EQ(chain.GetVersion(&its_major, &its_minor), 0);
    EXPECT_EQ(its_major, major);
    EXPECT_EQ(its_minor, minor);
    EXPECT_EQ(chain.GetParamSize(&its_size), 0);
    EXPECT_EQ(its_size, size);
    EXPECT_EQ(chain.SetDataLength(480), closed);
    EXPECT_EQ(chain.GetDataLength(&frames), closed);
    EXPECT_EQ(chain.SetSamplingRate(48000.0f), closed);
    EXPECT_EQ(chain.SetChannel(2), closed);
    EXPECT_EQ(chain.SetKeyReductionActive(1), closed);
    EXPECT_EQ(chain.SetNoiseReductionActive(1), closed);
    EXPECT_EQ(chain.Execute(nullptr), closed);
    EXPECT_EQ(chain.Close(), close);
  }
}

}  // namespace
}  // namespace sonivo
