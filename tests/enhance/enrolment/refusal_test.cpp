// What an enrolment refuses, in the order in which it looks, and that nothing stays behind.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "enrolment_bench.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;

class EnrolmentRefusal : public Enrolment {
 protected:
  void SetUp() override { ASSERT_EQ(open(), 0); }

  /// That code and line, no file, and an enhancement that goes on.
  void expect_refused(int result, int code, const std::string& line) {
    EXPECT_EQ(result, code);
    EXPECT_EQ(lines().back(), line);
    expect_untouched();
  }
  void expect_untouched() {
    EXPECT_FALSE(has_result());
    ASSERT_EQ(enhancer_.Run(), 0);
    std::vector<float> block(480);
    EXPECT_EQ(enhancer_.Execute(block.data()), 0) << "not busy";
    EXPECT_EQ(enhancer_.PauseMakeAIModel(), ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_RUNNING);
    ASSERT_EQ(enhancer_.Stop(), 0);
  }
  std::string names(const std::string& voice) const {
    return "MakeAIModel: base_model_file=" + base_ + ", enc_model_file=" + encoder_ + ", wave_file=" + voice +
           ", out_model_file=" + out_ + "\n";
  }
};

TEST_F(Enrolment, NeedsAnOpenChain) {
  EXPECT_EQ(make(wav(Talk{})), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_THAT(lines(), ElementsAre("MakeAIModel: return ERROR_AI_SPEECH_ENHANCE_NO_INIT\n"));
  EXPECT_EQ(enhancer_.MakeAIModel(nullptr, nullptr, nullptr, nullptr, 2), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  for (const auto steer : {&CAISpeechEnhance::PauseMakeAIModel, &CAISpeechEnhance::ResumeMakeAIModel,
                           &CAISpeechEnhance::QuitMakeAIModel}) {
    EXPECT_EQ((enhancer_.*steer)(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  }
  EXPECT_FALSE(has_result());
  ASSERT_EQ(open(), 0);
  EXPECT_EQ(make(wav(Talk{})), 0) << "not busy";
}

TEST_F(EnrolmentRefusal, OfEachMissingPath) {
  const std::string voice = folder_.write("voice.wav", wav(Talk{}).text());
  for (int missing = 0; missing < 4; ++missing) {
    const char* paths[] = {base_.c_str(), encoder_.c_str(), voice.c_str(), out_.c_str()};
    paths[missing] = nullptr;
    expect_refused(enhancer_.MakeAIModel(paths[0], paths[1], paths[2], paths[3], 2), 6,
                   "MakeAIModel: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n");
  }
}

TEST_F(EnrolmentRefusal, OfAPreprocessingThatIsNeitherOnNorOff) {
  for (const std::uint16_t preprocess_on : {std::uint16_t{2}, std::uint16_t{65535}}) {
    EXPECT_EQ(make("none.wav", preprocess_on), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    EXPECT_THAT(lines(), ElementsAre("MakeAIModel: preprocess_on=" + std::to_string(preprocess_on) +
                                     ", return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n"));
  }
  expect_untouched();
}

TEST_F(EnrolmentRefusal, OfAResultThatCantBeMade) {
  out_ = folder_ / "none/out.bin";
  encoder_ = folder_ / "none.bin";
  EXPECT_EQ(make("none.wav"), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  EXPECT_THAT(lines(), ElementsAre(names("none.wav"), "MakeAIModel: return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN\n"));
  expect_untouched();
}

/// Made or not, it is removed again: a device must not be.
TEST_F(EnrolmentRefusal, OfAResultThatIsNoFile) {
  out_ = folder_ / "folder";
  std::filesystem::create_directory(out_);
  EXPECT_EQ(make(wav(Talk{})), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  EXPECT_TRUE(has_result());
  out_ = folder_ / "pipe";
  ASSERT_EQ(::mkfifo(out_.c_str(), 0600), 0);
  EXPECT_EQ(make(wav(Talk{})), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  EXPECT_TRUE(has_result());
  std::filesystem::remove(out_);
  expect_untouched();
}

TEST_F(EnrolmentRefusal, OfAMissingEncoderComesBeforeThatOfTheRecording) {
  encoder_ = folder_ / "none.bin";
  const std::string voice = folder_.write("text.wav", "no recording");
  expect_refused(make(voice), 9, "MakeAIModel: return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN\n");
}

TEST_F(EnrolmentRefusal, OfAMissingRecording) {
  expect_refused(make(folder_ / "none.wav"), 9, "MakeAIModel: return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN\n");
}

TEST_F(EnrolmentRefusal, OfWhatIsNoRecording) {
  for (const char* bytes : {"", "no recording", "RIFF"}) {
    const std::string voice = folder_.write("text.wav", bytes);
    expect_refused(make(voice), 10,
                   "MakeAIModel: wavRead error, " + voice + ", return ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n");
  }
  tool::WavBytes empty = wav(std::vector<std::int16_t>{});
  const std::string voice = folder_.write("empty.wav", empty.text());
  expect_refused(make(voice), 10,
                 "MakeAIModel: wavRead error, " + voice + ", return ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n");
}

TEST_F(EnrolmentRefusal, OfAnotherTagSizeOrRate) {
  const auto expect_format = [&](const tool::WavBytes& recording, const std::string& told) {
    expect_refused(make(recording), 10,
                   "MakeAIModel: wav format error, " + told + ", return ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n");
  };
  tool::WavBytes of = wav(Talk{.seconds = 0.1});
  of.tag = 3;
  expect_format(of, "format=3, quan=16, sf=48000");
  of.tag = 0xFFFE;
  expect_format(of, "format=65534, quan=16, sf=48000");
  of.tag = 1;
  of.bits = 24;
  expect_format(of, "format=1, quan=24, sf=48000");
  of.bits = 8;
  expect_format(of, "format=1, quan=8, sf=48000");
  of.bits = 16;
  for (const std::uint32_t rate : {44100u, 16000u, 47999u, 48001u}) {
    of.rate_hz = rate;
    expect_format(of, "format=1, quan=16, sf=" + std::to_string(rate));
  }
}

TEST_F(EnrolmentRefusal, OfAnotherRateFollowsTheDevice) {
  ASSERT_EQ(enhancer_.SetSamplingRate(44100.0f), 0);
  expect_refused(make(wav(Talk{})), 10,
                 "MakeAIModel: wav format error, format=1, quan=16, sf=48000, return "
                 "ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n");
}

TEST_F(EnrolmentRefusal, OfOtherChannelsConcernsThePreprocessingOnly) {
  const tool::WavBytes stereo = wav(Talk{.channels = 2});
  expect_refused(make(stereo, 1), 10,
                 "MakeAIModel: wav format error, ch=2, return ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n");
  EXPECT_EQ(make(stereo, 0), 0);
}

TEST_F(EnrolmentRefusal, OfARecordingThatIsCutOff) {
  tool::WavBytes cut = wav(Talk{});
  cut.data_size = static_cast<std::uint32_t>(cut.audio.size() + 2);
  expect_refused(make(cut), 10, "MakeAIModel: file read, return ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n");
  cut.data_size = 0x7FFFFFFE;
  expect_refused(make(cut), 10, "MakeAIModel: file read, return ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n");
  cut.rate_hz = 44100;
  expect_refused(make(cut), 10,
                 "MakeAIModel: wav format error, format=1, quan=16, sf=44100, return "
                 "ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n");
}

TEST_F(EnrolmentRefusal, OfSilence) {
  expect_refused(make(wav(std::vector<std::int16_t>(96000))), 11,
                 "MakeAIModel: level error, return ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL\n");
  EXPECT_EQ(enhancer_.MakeAIModelLevel().active_rate, 0.0);
}

TEST_F(EnrolmentRefusal, OfAWhisper) {
  expect_refused(make(wav(Talk{.peak = 0.0005, .noise = 0.00003})), 11,
                 "MakeAIModel: level error, return ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL\n");
}

/// 11 or 17, as the first test has it.
TEST_F(EnrolmentRefusal, OfNoiseWithoutSpeech) {
  for (const double peak : {0.001, 0.01, 0.1}) {
    const int code = make(wav(Talk{.seconds = 4, .peak = 0, .noise = peak}));
    EXPECT_TRUE(code == 11 || code == 17) << code << " at " << peak;
    EXPECT_FALSE(has_result());
  }
}

TEST_F(EnrolmentRefusal, OfAVoiceInNoise) {
  expect_refused(make(wav(Talk{.seconds = 3, .noise = 0.01})), 17,
                 "MakeAIModel: SNR error, return ERROR_AI_SPEECH_ENHANCE_LOW_SNR\n");
}

TEST_F(EnrolmentRefusal, OfTooLittleSpeech) {
  std::vector<std::int16_t> samples = talk({.seconds = 1, .noise = 0});
  samples.resize(5 * 48000);
  expect_refused(make(wav(samples)), 17, "MakeAIModel: SNR error, return ERROR_AI_SPEECH_ENHANCE_LOW_SNR\n");
  EXPECT_LT(enhancer_.MakeAIModelLevel().active_rate, 0.3);
  EXPECT_GT(enhancer_.MakeAIModelLevel().signal, 1.8 * enhancer_.MakeAIModelLevel().noise);
}

class EnrolmentModels : public EnrolmentRefusal {
 protected:
  void expect_refused_models() {
    EXPECT_EQ(make(wav(Talk{.seconds = 0.8})), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
    const std::vector<std::string> told = lines("");
    EXPECT_THAT(told, testing::Contains("MakeAIModel: return ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL\n"));
    EXPECT_THAT(told, testing::Not(testing::Contains("set_spkenc:\n"))) << "no thread was started";
    expect_untouched();
  }
};

TEST_F(EnrolmentModels, ThatAreNone) {
  for (const char* bytes : {"", "abc", "senb20231004"}) {
    base_ = folder_.write("base.bin", bytes);
    expect_refused_models();
  }
  base_ = folder_ / "none.bin";
  expect_refused_models();
  base_ = folder_.write("base.bin", base_bytes());
  for (const char* bytes : {"", "abc", "spkb20231004"}) {
    encoder_ = folder_.write("encoder.bin", bytes);
    expect_refused_models();
  }
}

TEST_F(EnrolmentModels, InEachOthersPlace) {
  std::swap(base_, encoder_);
  expect_refused_models();
}

TEST_F(EnrolmentModels, WithoutAPlaceForTheVoice) {
  base_ = folder_.write("base.bin", base_bytes({1, 1, 1, 1}, "prod2"));
  expect_refused_models();
}

TEST_F(EnrolmentModels, OfDifferentSizes) {
  encoder_ = folder_.write("encoder.bin", encoder_bytes(encoder_network(kEmbeddingRows + 1)));
  expect_refused_models();
}

TEST_F(EnrolmentModels, WhoseEncoderWantsFeaturesThatThereArent) {
  ModelSymbols symbols = waveform_symbols();
  symbols.front().second = "lmfb";
  symbols.emplace_back("num-mel-bins", "20");
  encoder_ = folder_.write("encoder.bin", encoder_bytes(encoder_network(), symbols));
  expect_refused_models();
}

/// It would wait for ever: the FIFO holds a chunk of 50 ms.
TEST_F(EnrolmentModels, WhoseEncoderWantsMoreAtATimeThanItIsGiven) {
  encoder_ = folder_.write("encoder.bin", encoder_bytes(encoder_network(), waveform_symbols("50.1")));
  expect_refused_models();
}

TEST_F(EnrolmentModels, WhoseEncoderWantsALongerRecording) {
  encoder_ = folder_.write("encoder.bin", encoder_bytes(encoder_network(kEmbeddingRows, 100)));
  expect_refused_models();
  EXPECT_EQ(make(wav(Talk{.seconds = 1.2})), 0);
}

TEST_F(EnrolmentModels, ThatAreRefusedLeaveTheNextEnrolmentAlone) {
  base_ = folder_.write("base.bin", base_bytes({1, 1, 1, 1}, "prod2"));
  expect_refused_models();
  base_ = folder_.write("base.bin", base_bytes());
  EXPECT_EQ(make(wav(Talk{})), 0);
  EXPECT_TRUE(has_result());
}

TEST_F(EnrolmentModels, ThatAreRefusedTakeAnOlderResultWithThem) {
  folder_.write("out.bin", "an older one");
  base_ = folder_.write("base.bin", "abc");
  expect_refused_models();
}

}  // namespace
}  // namespace sonivo::test
