// What an enrolment writes: the base model with what the encoder made of the recording, and the log on the way there.

#include <gmock/gmock.h>

#include "classic/beam_forming_key_cancel.h"
#include "classic/built_in_params.h"
#include "classic/key_cancel.h"
#include "enhance/fifo_input.h"
#include "enrolment_bench.h"
#include "voice_band_reference.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::StartsWith;

std::vector<float> to_floats(const std::vector<std::int16_t>& samples) {
  std::vector<float> floats;
  for (const std::int16_t x : samples) floats.push_back(static_cast<float>(x / 32768.0));
  return floats;
}

std::vector<float> means(const std::vector<float>& interleaved, std::size_t channels) {
  std::vector<float> mean;
  for (std::size_t i = 0; i < interleaved.size(); i += channels) {
    double sum = 0;
    for (std::size_t c = 0; c < channels; ++c) sum += double{interleaved[i + c]};
    mean.push_back(static_cast<float>(sum / static_cast<double>(channels)));
  }
  return mean;
}

/// The encoder's mean in double, over what a FIFO makes of the whole blocks of a signal.
std::vector<double> embedding_of(const std::vector<float>& signal, int rate_hz, std::size_t block) {
  FifoInput fifo;
  const auto whole = static_cast<std::uint32_t>(signal.size() / block * block);
  fifo.BuffInit(whole, rate_hz, 0);
  fifo.PushData(signal.data(), whole);
  const std::size_t frames = whole / static_cast<std::uint32_t>(rate_hz / 100);
  std::vector<short> samples;
  fifo.data(samples, static_cast<int>(frames * kEncoderFrame), false);
  std::vector<double> sums(kEmbeddingRows);
  for (std::size_t f = 0; f < frames; ++f) {
    for (std::size_t j = 0; j < kEmbeddingRows; ++j) {
      double y = 0;
      for (std::size_t k = 0; k < kEncoderFrame; ++k) {
        y += double{encoder_weight(j, k)} * samples[f * kEncoderFrame + k] / 32768;
      }
      sums[j] += std::max(0.0, y) / static_cast<double>(frames);
    }
  }
  return sums;
}

class EnrolmentResult : public Enrolment {
 protected:
  /// What stands in prod1 of the written model, which has nothing else that the base model has not.
  std::vector<float> enrolled() {
    const std::string base = content(base_);
    std::string saved = content(out_);
    EXPECT_EQ(saved.size(), base.size());
    const std::size_t at = base.find("ProdProd") + 8 + 16;  // behind type, tag, rows and columns
    std::vector<float> embedding(kEmbeddingRows);
    const std::size_t bytes = kEmbeddingRows * sizeof(float);
    std::memcpy(embedding.data(), saved.data() + at, bytes);
    saved.replace(at, bytes, base, at, bytes);
    EXPECT_TRUE(saved == base);
    return embedding;
  }
  void expect_enrolled(const std::vector<float>& signal, int rate_hz, std::size_t block) {
    const std::vector<double> expected = embedding_of(signal, rate_hz, block);
    const std::vector<float> embedding = enrolled();
    for (std::size_t j = 0; j < kEmbeddingRows; ++j) {
      EXPECT_NEAR(embedding[j], expected[j], 2e-5) << "row " << j;
      EXPECT_GT(expected[j], 0.01) << "row " << j;
    }
  }

 private:
  static std::string content(const std::string& path) { return tool::bytes_of_file(path); }
};

TEST_F(EnrolmentResult, IsTheEncodersMeanInTheBaseModel) {
  for (const int rate_hz : {48000, 44100}) {
    const Talk how{.rate_hz = rate_hz};
    ASSERT_EQ(open(rate_hz), 0);
    ASSERT_EQ(make(wav(how)), 0);
    expect_enrolled(to_floats(talk(how)), rate_hz, static_cast<std::size_t>(rate_hz / 100));
    ASSERT_EQ(enhancer_.Close(), 0);
  }
}

TEST_F(EnrolmentResult, IsThatOfTheMeanOfTheChannels) {
  ASSERT_EQ(open(), 0);
  for (const std::uint16_t channels : {std::uint16_t{2}, std::uint16_t{5}}) {
    const Talk how{.channels = channels};
    ASSERT_EQ(make(wav(how)), 0);
    expect_enrolled(means(to_floats(talk(how)), channels), 48000, 480);
  }
}

TEST_F(EnrolmentResult, IsThatOfTheProcessedRecordingWherePreprocessingIsOn) {
  for (const std::uint16_t channels : {std::uint16_t{1}, std::uint16_t{2}}) {
    const Talk how{.seconds = 2.005, .channels = channels, .share = 0.02};  // or the beams would hear the same
    ASSERT_EQ(open(48000, channels), 0);
    ASSERT_EQ(make(wav(how), 1), 0);
    ASSERT_EQ(enhancer_.Close(), 0);

    CBeamFormingKeyCancel chain;
    const auto param = classic::test::beam_forming_params();
    ASSERT_EQ(chain.Open(&param, 48000, channels, 480), 0);
    std::vector<float> signal = to_floats(talk(how));
    const std::vector<float> unprocessed = signal;
    const std::size_t step = std::size_t{480} * channels;
    for (std::size_t i = 0; i + step <= signal.size(); i += step) ASSERT_EQ(chain.Execute(&signal[i]), 0);
    EXPECT_NE(signal, unprocessed);
    expect_enrolled(means(signal, channels), 48000, 480);
  }
}

/// Blocks that aren't frames of 10 ms, and longer ones than the FIFO has room for otherwise.
TEST_F(EnrolmentResult, IsThatOfTheWholeBlocks) {
  const std::vector<float> signal = to_floats(talk({}));
  for (const std::uint16_t block : {std::uint16_t{100}, std::uint16_t{1024}, std::uint16_t{7000}}) {
    ASSERT_EQ(open(48000, 1, block), 0);
    ASSERT_EQ(make(wav(Talk{})), 0) << block;
    expect_enrolled(signal, 48000, block);
    ASSERT_EQ(enhancer_.Close(), 0);
  }
}

/// Frames as long as what is fed at once.
TEST_F(EnrolmentResult, ComesWhereverABlockEnds) {
  encoder_ = folder_.write("encoder.bin", encoder_bytes(encoder_network(), waveform_symbols("50")));
  for (const int rate_hz : {48000, 44100}) {
    for (const std::uint16_t block : {std::uint16_t{0}, std::uint16_t{100}, std::uint16_t{1024}}) {
      ASSERT_EQ(open(rate_hz, 1, block), 0);
      EXPECT_EQ(make(wav(Talk{.seconds = 1, .rate_hz = rate_hz})), 0) << rate_hz << " Hz, blocks of " << block;
      ASSERT_EQ(enhancer_.Close(), 0);
    }
  }
}

/// SetChannel and SetDataLength concern the stream only.
TEST_F(EnrolmentResult, ComesWithTheChannelsAndBlocksOfOpen) {
  ASSERT_EQ(open(48000, 2), 0);
  ASSERT_EQ(enhancer_.SetChannel(1), 0);
  ASSERT_EQ(enhancer_.SetDataLength(4800), 0);
  const Talk how{.seconds = 2.095, .channels = 2, .share = 0.02};
  lines("");
  EXPECT_EQ(make(wav(how), 1), 0);
  EXPECT_THAT(lines(), testing::Contains("MakeAIModel: FifoInput end, remain=240\n"));
}

/// As does SetParam: beams that hear nothing would leave nothing to enroll.
TEST_F(EnrolmentResult, ComesWithTheParametersOfOpen) {
  auto deaf = classic::test::beam_forming_params(9);
  std::memset(&deaf.filter, 0, sizeof deaf.filter);
  const auto* const deaf_words = reinterpret_cast<const std::uint16_t*>(&deaf);
  const Talk how{.channels = 2, .share = 0.02};
  ASSERT_EQ(open(48000, 2), 0);
  ASSERT_EQ(make(wav(how), 1), 0);
  const std::vector<float> expected = enrolled();
  ASSERT_EQ(enhancer_.Close(), 0);

  ASSERT_EQ(open(48000, 2), 0);
  ASSERT_EQ(enhancer_.SetParam(deaf_words), 0);
  std::uint16_t id = 0;
  EXPECT_EQ(enhancer_.GetParamID(&id), 0);
  EXPECT_EQ(id, 9);
  ASSERT_EQ(make(wav(how), 1), 0);
  EXPECT_EQ(enrolled(), expected);
  ASSERT_EQ(enhancer_.Close(), 0);

  ASSERT_EQ(enhancer_.Open(deaf_words, plain_.c_str(), 48000.0f, 2, 480, 20.0f, 20.0f), 0);
  EXPECT_EQ(make(wav(how), 1), ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL);
}

/// As after a change of the model that failed.
TEST_F(EnrolmentResult, NeedsNoModelInTheStream) {
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(enhancer_.SetAIModel(folder_.write("none.bin", "no model").c_str()), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  ASSERT_EQ(make(wav(Talk{})), 0);
  expect_enrolled(to_floats(talk({})), 48000, 480);
}

TEST_F(EnrolmentResult, ComesToOneCallerAfterTheOther) {
  ASSERT_EQ(open(), 0);
  auto first = start_making({});
  auto second = std::async(std::launch::async, [this] { return make(folder_ / "voice.wav"); });
  EXPECT_EQ(first.get(), 0);
  EXPECT_EQ(second.get(), 0);
  expect_enrolled(to_floats(talk({})), 48000, 480);
}

TEST_F(EnrolmentResult, TellsVoicesApart) {
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(make(wav(Talk{.pitch_hz = 120})), 0);
  const std::vector<float> low = enrolled();
  ASSERT_EQ(make(wav(Talk{.pitch_hz = 200})), 0);
  const std::vector<float> high = enrolled();
  ASSERT_EQ(make(wav(Talk{.pitch_hz = 120})), 0);
  EXPECT_EQ(enrolled(), low);
  EXPECT_GT(high[0], 1.5f * low[0]) << "its fundamental is what the first row looks at";
}

TEST_F(EnrolmentResult, TakesThePlaceOfAnOlderOne) {
  ASSERT_EQ(open(), 0);
  folder_.write("out.bin", std::string(100000, 'x'));
  ASSERT_EQ(make(wav(Talk{})), 0);
  expect_enrolled(to_floats(talk({})), 48000, 480);
}

TEST_F(EnrolmentResult, LeavesOneFileAndTheModelsAsTheyAre) {
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(make(wav(Talk{})), 0);
  EXPECT_THAT(folder_.entries(), ElementsAre("base.bin", "encoder.bin", "out.bin", "plain.bin", "voice.wav"));
  EXPECT_EQ(tool::bytes_of_file(base_), base_bytes());
  EXPECT_EQ(tool::bytes_of_file(encoder_), encoder_bytes());
}

TEST_F(EnrolmentResult, IsLoggedStepByStep) {
  ASSERT_EQ(open(), 0);
  lines("");
  ASSERT_EQ(make(wav(Talk{.seconds = 2.005})), 0);
  std::vector<LogCapture::Message> told;
  for (const LogCapture::Message& message : log_.take()) {
    if (message.second.starts_with("MakeAIModel:") || message.second.starts_with("set_spkenc:")) {
      told.push_back(message);
    }
  }
  const VoiceLevel level = enhancer_.MakeAIModelLevel();
  char levels[300];
  std::snprintf(levels, sizeof levels,
                "MakeAIModel: active_rate=%f, peak_lvl=%f, avg_lvl=%f, g_avg_lvl=%f, g_peak_lvl=%f\n",
                level.active_rate, static_cast<double>(level.peak_lvl), level.avg_lvl, 0.05 / level.avg_lvl,
                0.5 / static_cast<double>(level.peak_lvl));
  const auto step = [](const std::string& text) { return Pair(LogLevel::info2, text); };
  EXPECT_EQ(told.front(), (LogCapture::Message{LogLevel::info1, "MakeAIModel:\n"}));
  EXPECT_EQ(told.back(), (LogCapture::Message{LogLevel::info1, "MakeAIModel: return (0)\n"}));
  // The encoder's lines come from another thread.
  std::vector<LogCapture::Message> encoder;
  for (auto i = told.begin(); i != told.end();) {
    const bool is_encoder = i->second.starts_with("set_spkenc:");
    if (is_encoder) encoder.push_back(*i);
    i = is_encoder ? told.erase(i) : i + 1;
  }
  EXPECT_THAT(encoder, ElementsAre(step("set_spkenc:\n"), step("set_spkenc: sample-frequency=16000, frame-length=10\n"),
                                   step("set_spkenc: return\n")));
  EXPECT_THAT((std::vector(told.begin() + 1, told.end() - 1)),
              ElementsAre(step("MakeAIModel: base_model_file=" + base_ + ", enc_model_file=" + encoder_ +
                               ", wave_file=" + (folder_ / "voice.wav") + ", out_model_file=" + out_ + "\n"),
                          step("MakeAIModel: Running, make_model_running=1, quit=0, pause=0\n"), step(levels),
                          step("MakeAIModel: frame_shift_ms=10, chunk_size=5\n"),
                          step("MakeAIModel: FifoInput end, remain=240\n"),
                          step("MakeAIModel: Encode end, make_model_running=2, quit=0, pause=0\n"),
                          step("MakeAIModel: File output, make_model_running=2, quit=0, pause=0\n"),
                          step("MakeAIModel: Idle, make_model_running=0, quit=0, pause=0\n")));
}

/// The measure as it is defined, in double, over copies that one filter goes through one after the other.
class LevelReference {
 public:
  LevelReference() { nr_.Open(&classic::NrModelParam(), 48000, 1, 480); }

  VoiceLevel measure(const std::vector<float>& signal, bool one_state) {
    const std::vector<double> x(signal.begin(), signal.end());
    const std::vector<double> p = filter_.process(x);
    std::vector<double> filtered = one_state ? filter_.process(x) : VoiceBandReference().process(x);
    std::vector<float> d(filtered.begin(), filtered.end());
    for (std::size_t i = 0; i + 480 <= d.size(); i += 480) nr_.Execute(&d[i]);

    double e_p = 0, e_d = 0, sum_e = 0, sum_s = 0, sum_n = 0, peak = 0;
    double active = 0, inactive = 0;
    for (std::size_t i = 0; i + 1 < p.size(); ++i) {
      e_d = 0.995 * e_d + 0.005 * std::abs(double{d[i + 1]} - double{d[i]});
      e_p = 0.995 * e_p + 0.005 * std::abs(p[i + 1] - p[i]);
      if (e_d > 0.0003 && e_d > 0.5 * e_p) {
        sum_e += e_p;
        sum_s += std::abs(p[i + 1]);
        peak = std::max(peak, e_p);
        ++active;
      } else if (0.25 * e_p > e_d || 0.0001 > e_d) {
        sum_n += std::abs(p[i + 1]);
        ++inactive;
      }
    }
    return {.avg_lvl = sum_e / active,
            .peak_lvl = static_cast<float>(peak),
            .signal = sum_s / active,
            .noise = sum_n / inactive,
            .active_rate = active / static_cast<double>(p.size())};
  }

 private:
  CKeyCancel nr_;
  VoiceBandReference filter_;
};

/// A recording far off zero: a filter that hears it anew rings, one that goes on where it was does not.
TEST_F(EnrolmentResult, IsJudgedByOneFilterThatGoesOnFromCopyToCopyAndFromCallToCall) {
  std::vector<std::int16_t> samples = talk({});
  for (std::int16_t& x : samples) x = static_cast<std::int16_t>(x + 9000);
  ASSERT_EQ(open(), 0);
  LevelReference reference, wrong;
  for (int call = 0; call < 2; ++call) {
    ASSERT_EQ(make(wav(samples)), 0);
    const VoiceLevel level = enhancer_.MakeAIModelLevel();
    const VoiceLevel expected = reference.measure(to_floats(samples), true);
    EXPECT_NEAR(level.avg_lvl, expected.avg_lvl, 1e-3 * expected.avg_lvl) << "call " << call;
    EXPECT_NEAR(level.peak_lvl, expected.peak_lvl, 1e-3f * expected.peak_lvl) << "call " << call;
    EXPECT_NEAR(level.signal, expected.signal, 1e-3 * expected.signal) << "call " << call;
    EXPECT_NEAR(level.noise, expected.noise, 1e-3 * expected.noise) << "call " << call;
    EXPECT_NEAR(level.active_rate, expected.active_rate, 1e-3) << "call " << call;
    const VoiceLevel other = wrong.measure(to_floats(samples), false);
    EXPECT_GT(std::abs(other.noise / expected.noise - 1) + std::abs(other.signal / expected.signal - 1) +
                  std::abs(other.active_rate - expected.active_rate),
              1e-2)
        << "what it would be otherwise, call " << call;
  }
}

}  // namespace
}  // namespace sonivo::test
