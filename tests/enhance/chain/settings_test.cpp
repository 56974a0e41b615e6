// Settings: which need an open chain, what each takes and refuses, what comes back, and what is logged of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "chain_bench.h"
#include "operations.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;

using Settings = ChainBench;
using Flag16 = std::uint16_t;

TEST_F(Settings, NeedAnOpenChain) {
  log.take();
  for (const Operation& operation : operations_that_need_open()) {
    EXPECT_EQ(operation.call(*chain), ERROR_AI_SPEECH_ENHANCE_NO_INIT) << operation.name;
    EXPECT_EQ(errors(), std::vector{operation.name + ": return ERROR_AI_SPEECH_ENHANCE_NO_INIT\n"});
  }
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(chain->Close(), 0);
  for (const Operation& operation : operations_that_need_open()) {
    EXPECT_EQ(operation.call(*chain), ERROR_AI_SPEECH_ENHANCE_NO_INIT) << operation.name << ", closed again";
  }
}

/// Entry and return of each; those of life and death at a level of their own.
TEST_F(Settings, AreLoggedAtEntryAndReturn) {
  log.take();
  for (const auto& [name, call] : operations_that_need_open()) {
    call(*chain);
    const LogLevel level = name == "Run" || name == "Stop" ? LogLevel::info0 : LogLevel::info1;
    EXPECT_THAT(log.take(level), ElementsAre(name + ":\n", name + ": return (5)\n"));
  }
  std::uint16_t major = 0, minor = 0;
  std::uint32_t size = 0;
  EXPECT_EQ(chain->GetVersion(&major, &minor), 0);
  EXPECT_EQ(chain->GetParamSize(&size), 0);
  EXPECT_THAT(log.take(LogLevel::info1), ElementsAre("GetVersion:\n", "GetVersion: return (0)\n", "GetParamSize:\n",
                                                     "GetParamSize: return (0)\n"));
}

TEST_F(Settings, LatencyNeedsAnOpenChainAndRoom) {
  std::uint32_t frames = 7;
  log.take();
  EXPECT_EQ(chain->GetLatency(&frames), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(frames, 7u);
  EXPECT_THAT(log.take(), ElementsAre());
  ASSERT_EQ(open(), 0);
  EXPECT_EQ(chain->GetLatency(nullptr), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
}

TEST_F(Settings, VersionAndParamSizeNeedNothing) {
  std::uint16_t major = 0, minor = 0;
  EXPECT_EQ(chain->GetVersion(&major, &minor), 0);
  EXPECT_EQ(major, 1);
  EXPECT_EQ(minor, 7);
  std::uint32_t size = 0;
  EXPECT_EQ(chain->GetParamSize(&size), 0);
  EXPECT_EQ(size, 32636u);
  log.take();
  EXPECT_EQ(chain->GetVersion(nullptr, &minor), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  EXPECT_EQ(chain->GetVersion(&major, nullptr), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  EXPECT_EQ(chain->GetParamSize(nullptr), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  EXPECT_THAT(errors(), ElementsAre("GetVersion: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n",
                                    "GetVersion: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n",
                                    "GetParamSize: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n"));
}

TEST_F(Settings, NullIsRefused) {
  ASSERT_EQ(open(), 0);
  log.take();
  using Chain = CAISpeechEnhance;
  const std::vector<Operation> with_null = {
      {"SetParam", [](Chain& c) { return c.SetParam(nullptr); }},
      {"GetParamID", [](Chain& c) { return c.GetParamID(nullptr); }},
      {"GetAIModelID", [](Chain& c) { return c.GetAIModelID(nullptr); }},
      {"GetAISpeechEnhanceActive", [](Chain& c) { return c.GetAISpeechEnhanceActive(nullptr); }},
      {"GetAISpeechEnhanceStrength", [](Chain& c) { return c.GetAISpeechEnhanceStrength(nullptr); }},
      {"GetBeamFormingActive", [](Chain& c) { return c.GetBeamFormingActive(nullptr); }},
      {"GetKeyReductionActive", [](Chain& c) { return c.GetKeyReductionActive(nullptr); }},
      {"GetNoiseReductionActive", [](Chain& c) { return c.GetNoiseReductionActive(nullptr); }},
      {"GetSamplingRate", [](Chain& c) { return c.GetSamplingRate(nullptr); }},
      {"GetChannel", [](Chain& c) { return c.GetChannel(nullptr); }},
      {"GetDataLength", [](Chain& c) { return c.GetDataLength(nullptr); }},
      {"OpenRecFile", [](Chain& c) { return c.OpenRecFile(nullptr); }},
      {"Rec", [](Chain& c) { return c.Rec(nullptr); }},
  };
  for (const Operation& operation : with_null) {
    EXPECT_EQ(operation.call(*chain), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG) << operation.name;
    EXPECT_EQ(errors(), std::vector{operation.name + ": return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n"});
  }
}

TEST_F(Settings, TheChainsFlagsAreZeroOrOne) {
  ASSERT_EQ(open(), 0);
  using Chain = CAISpeechEnhance;
  struct FlagOf {
    const char* name;
    int (Chain::*set)(Flag16);
    int (Chain::*get)(Flag16*) const;
    Flag16 at_open;
  };
  for (const auto& [name, set, get, at_open] :
       {FlagOf{"SetAISpeechEnhanceActive", &Chain::SetAISpeechEnhanceActive, &Chain::GetAISpeechEnhanceActive, 0},
        FlagOf{"SetBeamFormingActive", &Chain::SetBeamFormingActive, &Chain::GetBeamFormingActive, 1},
        FlagOf{"SetKeyReductionActive", &Chain::SetKeyReductionActive, &Chain::GetKeyReductionActive, 1},
        FlagOf{"SetNoiseReductionActive", &Chain::SetNoiseReductionActive, &Chain::GetNoiseReductionActive, 1}}) {
    Flag16 value = 7;
    EXPECT_EQ(((*chain).*get)(&value), 0) << name;
    EXPECT_EQ(value, at_open) << name;
    for (const Flag16 wanted : {Flag16{1}, Flag16{0}, Flag16{1}}) {
      EXPECT_EQ(((*chain).*set)(wanted), 0) << name;
      EXPECT_EQ(((*chain).*get)(&value), 0) << name;
      EXPECT_EQ(value, wanted) << name;
    }
    for (const Flag16 wrong : {Flag16{2}, Flag16{65535}}) {
      log.take();
      EXPECT_EQ(((*chain).*set)(wrong), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG) << name;
      EXPECT_EQ(errors(), std::vector{std::string(name) + ": return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n"});
      EXPECT_EQ(((*chain).*get)(&value), 0);
      EXPECT_EQ(value, 1) << name;
    }
  }
}

TEST_F(Settings, TheEnhancementsFlagOutlivesAClose) {
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(chain->SetAISpeechEnhanceActive(1), 0);
  ASSERT_EQ(chain->Close(), 0);
  ASSERT_EQ(open(), 0);
  Flag16 active = 0;
  EXPECT_EQ(chain->GetAISpeechEnhanceActive(&active), 0);
  EXPECT_EQ(active, 1) << "only a new object begins at 0";
}

TEST_F(Settings, StrengthIsFromZeroToOne) {
  ASSERT_EQ(open(), 0);
  float strength = 0.0f;
  EXPECT_EQ(chain->GetAISpeechEnhanceStrength(&strength), 0);
  EXPECT_EQ(strength, 1.0f);
  for (const float wanted : {0.0f, 0.25f, 1.0f}) {
    EXPECT_EQ(chain->SetAISpeechEnhanceStrength(wanted), 0);
    EXPECT_EQ(chain->GetAISpeechEnhanceStrength(&strength), 0);
    EXPECT_EQ(strength, wanted);
  }
  for (const float wrong : {-0.001f, 1.001f, std::numeric_limits<float>::quiet_NaN()}) {
    EXPECT_EQ(chain->SetAISpeechEnhanceStrength(wrong), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG) << wrong;
    EXPECT_EQ(errors().back(), "SetAISpeechEnhanceStrength: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n");
  }
  EXPECT_EQ(chain->GetAISpeechEnhanceStrength(&strength), 0);
  EXPECT_EQ(strength, 1.0f);
}

TEST_F(Settings, TheRateIsOneOfTwo) {
  ASSERT_EQ(open(passing, 44100.0f, 1, 441), 0);
  float rate = 0.0f;
  EXPECT_EQ(chain->GetSamplingRate(&rate), 0);
  EXPECT_EQ(rate, 44100.0f);
  EXPECT_EQ(chain->SetSamplingRate(48000.0f), 0);
  for (const float wrong : {16000.0f, 0.0f, 96000.0f}) {
    EXPECT_EQ(chain->SetSamplingRate(wrong), ERROR_AI_SPEECH_ENHANCE_SAMPLING_RATE);
    EXPECT_EQ(errors().back(), "SetSamplingRate: return ERROR_AI_SPEECH_ENHANCE_SAMPLING_RATE\n");
  }
  EXPECT_EQ(chain->GetSamplingRate(&rate), 0);
  EXPECT_EQ(rate, 48000.0f);
}

/// A frame at 44100 Hz has 441 samples: a ring that took the new rate would give the model its frame later.
TEST_F(Settings, ANewRateDoesNotReachTheRings) {
  start(passing, 44100.0f, 1, 441);
  ASSERT_EQ(chain->SetSamplingRate(48000.0f), 0);
  log.take();
  for (int n = 1; n <= 5; ++n) ASSERT_EQ(play_silence(441), 0);
  int chunks = 0;
  for (const auto& text : log.take(LogLevel::info3)) {
    chunks += text.starts_with("FifoOutput::PushData: [") && text.ends_with("], size=800\n");
    EXPECT_EQ(text.find("ChangeRate"), std::string::npos) << text;
  }
  EXPECT_EQ(chunks, 1) << "of five times 441 samples";
}

TEST_F(Settings, ChannelsAreOneToFour) {
  ASSERT_EQ(open(passing, 48000.0f, 3), 0);
  std::uint16_t channels = 0;
  EXPECT_EQ(chain->GetChannel(&channels), 0);
  EXPECT_EQ(channels, 3);
  for (const std::uint16_t wrong : {std::uint16_t{0}, std::uint16_t{5}}) {
    EXPECT_EQ(chain->SetChannel(wrong), ERROR_AI_SPEECH_ENHANCE_CHANNEL_NUM);
    EXPECT_EQ(errors().back(), "SetChannel: return ERROR_AI_SPEECH_ENHANCE_CHANNEL_NUM\n");
  }
  for (const std::uint16_t wanted : {std::uint16_t{1}, std::uint16_t{4}}) {
    EXPECT_EQ(chain->SetChannel(wanted), 0);
    EXPECT_EQ(chain->GetChannel(&channels), 0);
    EXPECT_EQ(channels, wanted);
  }
}

TEST_F(Settings, TheBlockHasALength) {
  ASSERT_EQ(open(), 0);
  EXPECT_EQ(chain->SetDataLength(0), ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH);
  EXPECT_EQ(errors().back(), "SetDataLength: return ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH\n");
  std::uint16_t length = 0;
  EXPECT_EQ(chain->GetDataLength(&length), 0);
  EXPECT_EQ(length, kBlock);
  EXPECT_EQ(chain->SetDataLength(441), 0);
  EXPECT_EQ(chain->GetDataLength(&length), 0);
  EXPECT_EQ(length, 441);
}

/// Five blocks of 96 are a frame, and a block of 960 is two.
TEST_F(Settings, ANewLengthIsThatOfTheBlocks) {
  start();
  ASSERT_EQ(chain->SetDataLength(96), 0);
  log.take();
  for (int n = 1; n <= 25; ++n) ASSERT_EQ(play_silence(96), 0);
  ASSERT_EQ(chain->SetDataLength(1200), 0);
  for (int n = 1; n <= 2; ++n) ASSERT_EQ(play_silence(1200), 0);
  int chunks = 0;
  for (const auto& text : log.take(LogLevel::info3)) {
    chunks += text.starts_with("FifoOutput::PushData: [") && text.ends_with("], size=800\n");
  }
  EXPECT_EQ(chunks, 2);
}

TEST_F(Settings, AParameterBlobGoesToTheBeamformingChain) {
  ASSERT_EQ(open(), 0);
  std::uint16_t id = 0;
  EXPECT_EQ(chain->GetParamID(&id), 0);
  EXPECT_EQ(id, 8);
  BeamBlob other(21);
  EXPECT_EQ(chain->SetParam(other.get()), 0);
  EXPECT_EQ(chain->GetParamID(&id), 0);
  EXPECT_EQ(id, 21);
  other->version_major = 9;
  EXPECT_EQ(chain->SetParam(other.get()), ERROR_AI_SPEECH_ENHANCE_PARAM_VERSION);
  EXPECT_EQ(errors().back(), "SetParam: return ERROR_AI_SPEECH_ENHANCE_PARAM_VERSION\n");
  EXPECT_EQ(chain->GetParamID(&id), 0);
  EXPECT_EQ(id, 21);
}

TEST_F(Settings, TheModelsIdIsItsVersion) {
  ASSERT_EQ(open(folder.write("dated.bin", model_of(gains_network({1.0f}), {{"file-version", "20240229"}}))), 0);
  std::array<char, 12> text;
  text.fill('#');
  EXPECT_EQ(chain->GetAIModelID(text.data()), 0);
  EXPECT_EQ(std::string(text.data(), text.size()), std::string("20240229\0###", 12)) << "terminator and no more";
}

}  // namespace
}  // namespace sonivo::test
