// What Execute makes of a block: with the enhancement and without it, late, lost and missing ones.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

#include "chain_bench.h"
#include "classic/beam_forming_key_cancel.h"

namespace sonivo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

/// White, and small enough that no filter in the way clips it.
std::vector<float> white_noise(std::size_t count, unsigned seed = 1) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<float> of(-0.2f, 0.2f);
  std::vector<float> x(count);
  for (float& sample : x) sample = of(generator);
  return x;
}

/// The shift, up to `most`, at which the end of y resembles x most.
std::size_t delay_between(const std::vector<float>& x, const std::vector<float>& y, std::size_t most) {
  std::size_t best = 0;
  double highest = 0.0;
  const std::size_t begin = std::max(most, y.size() < 1000 ? 0 : y.size() - 1000);
  for (std::size_t shift = 0; shift <= most; ++shift) {
    double sum = 0.0;
    for (std::size_t n = begin; n < y.size(); ++n) sum += static_cast<double>(y[n]) * static_cast<double>(x[n - shift]);
    if (sum > highest) {
      highest = sum;
      best = shift;
    }
  }
  return best;
}

/// Input samples of a rate converter, middle tap included.
constexpr std::size_t kConverterDelay = 16;

struct Blocks : ChainBench {
  /// Until the enhancement thread stands in front of the output ring with its first chunk, five frames of input.
  void hold_the_first_chunk(std::uint16_t length = kBlock, std::uint16_t channels = 1) {
    log.hold_at("FifoOutput::PushData");
    for (int n = 1; n <= 5; ++n) {
      Block block(std::size_t{length} * channels, 0.0f);
      ASSERT_EQ(chain->Execute(block.data()), 0);
    }
    ASSERT_TRUE(log.wait_for_held());
  }
};

/// Down to 16 kHz takes 16 samples at 48 kHz, up again 16 at 16 kHz. The output ring is full of silence and is left
/// no emptier: a chunk comes in for five blocks that go out.
TEST_F(Blocks, AreAsLateAsTheFilledRingAndTheConverters) {
  for (const float out_ms : {20.0f, 0.0f, 35.0f}) {
    start(passing, 48000.0f, 1, kBlock, 20.0f, out_ms);
    const auto x = white_noise(40 * kBlock);
    const std::size_t ring = (static_cast<std::size_t>(out_ms) + 50 + 50) * 48;
    const std::size_t expected = beam_delay() + ring + kConverterDelay + 3 * kConverterDelay;
    EXPECT_EQ(delay_between(x, through(x), expected + 1000), expected) << out_ms << " ms";
    std::uint32_t told = 0;
    EXPECT_EQ(chain->GetLatency(&told), 0);
    EXPECT_EQ(told, expected);
    ASSERT_EQ(chain->Stop(), 0);
    ASSERT_EQ(chain->Close(), 0);
  }
}

TEST_F(Blocks, BeginWithTheSilenceOfTheRing) {
  start();
  const auto y = through(white_noise(20 * kBlock));
  const std::size_t ring = (20 + 50 + 50) * 48;
  EXPECT_TRUE(std::all_of(y.begin(), y.begin() + ring, [](float sample) { return sample == 0.0f; }));
  EXPECT_FALSE(std::all_of(y.begin() + ring, y.end(), [](float sample) { return sample == 0.0f; }));
}

/// The same signal through a model of gain 1 and of gain 2: all of the difference is the model's.
TEST_F(Blocks, GoThroughTheModel) {
  const auto x = white_noise(40 * kBlock);
  start();
  const auto once = through(x);
  ASSERT_EQ(chain->Stop(), 0);
  ASSERT_EQ(chain->Close(), 0);
  start(folder.write("double.bin", gain_model(2.0f)));
  const auto twice = through(x);
  float loudest = 0.0f;
  for (std::size_t n = 0; n < x.size(); ++n) {
    loudest = std::max(loudest, std::abs(once[n]));
    ASSERT_NEAR(twice[n], 2 * once[n], 3.0f / 32768) << n;  // each is cut to 16 bits
  }
  EXPECT_GT(loudest, 0.05f);
}

TEST_F(Blocks, StrengthZeroIsTheInputOfTheModel) {
  const auto x = white_noise(40 * kBlock);
  start();
  const auto plain = through(x);
  ASSERT_EQ(chain->Stop(), 0);
  ASSERT_EQ(chain->Close(), 0);
  start(folder.write("silent.bin", gain_model(0.0f)));
  EXPECT_EQ(through(x), Block(x.size(), 0.0f));
  ASSERT_EQ(chain->SetAISpeechEnhanceStrength(0.0f), 0);
  ASSERT_EQ(chain->Stop(), 0);
  ASSERT_EQ(chain->SetDataLength(kBlock), 0);  // empties the chain in front
  ASSERT_EQ(chain->Run(), 0);
  ASSERT_TRUE(settle());
  EXPECT_EQ(through(x), plain);
}

TEST_F(Blocks, OfAllChannelsBearTheResult) {
  for (const std::uint16_t channels : {std::uint16_t{2}, std::uint16_t{3}, std::uint16_t{4}}) {
    start(passing, 48000.0f, channels);
    const auto mono = white_noise(40 * kBlock);
    Block x;
    for (const float sample : mono) x.insert(x.end(), channels, sample);
    const auto y = through(x, kBlock, channels);
    Block first;
    for (std::size_t f = 0; f < mono.size(); ++f) {
      first.push_back(y[f * channels]);
      for (std::size_t c = 1; c < channels; ++c) ASSERT_EQ(y[f * channels + c], first[f]) << "frame " << f;
    }
    EXPECT_EQ(delay_between(mono, first, 9000), beam_delay() + 5760 + 4 * kConverterDelay) << channels;
    ASSERT_EQ(chain->Stop(), 0);
    ASSERT_EQ(chain->Close(), 0);
  }
}

/// Against the chain in front alone, stages on, with the microphones apart.
TEST_F(Blocks, WithoutTheEnhancementAreThoseOfTheBeamformingChain) {
  CBeamFormingKeyCancel alone;
  ASSERT_EQ(alone.Open(blob.get(), 48000.0f, 2, kBlock), 0);
  ASSERT_EQ(open(passing, 48000.0f, 2), 0);
  ASSERT_EQ(chain->Run(), 0);
  const auto x = white_noise(2 * 40 * kBlock);
  Block expected = x;
  for (std::size_t at = 0; at < x.size(); at += 2 * kBlock) alone.Execute(&expected[at]);
  EXPECT_EQ(through(x, kBlock, 2), expected);
}

/// One channel joined later, so that the chain in front gives each one something else.
TEST_F(Blocks, WithoutTheEnhancementKeepTheirChannels) {
  ASSERT_EQ(open(passing, 48000.0f, 2), 0);
  ASSERT_EQ(chain->Run(), 0);
  ASSERT_EQ(chain->SetChannel(1), 0);
  through(white_noise(40 * kBlock));
  ASSERT_EQ(chain->SetChannel(2), 0);
  const auto y = through(white_noise(2 * 10 * kBlock, 2), kBlock, 2);
  std::size_t apart = 0;
  for (std::size_t f = 0; f < y.size() / 2; ++f) apart += y[2 * f] != y[2 * f + 1];
  EXPECT_GT(apart, y.size() / 4);
}

TEST_F(Blocks, WithoutTheEnhancementLeaveTheRingsAsNew) {
  start();
  through(white_noise(23 * kBlock));
  ASSERT_EQ(chain->SetAISpeechEnhanceActive(0), 0);
  const auto x = white_noise(3 * kBlock, 2);
  Block direct = through(x);
  EXPECT_EQ(delay_between(x, direct, kBlock), beam_delay()) << "no delay of the rings";
  std::uint32_t told = 0;
  EXPECT_EQ(chain->GetLatency(&told), 0);
  EXPECT_EQ(told, beam_delay());
  ASSERT_EQ(chain->SetAISpeechEnhanceActive(1), 0);
  const auto y = through(white_noise(20 * kBlock, 3));
  EXPECT_TRUE(std::all_of(y.begin(), y.begin() + 5760, [](float sample) { return sample == 0.0f; }))
      << "of before nothing comes";
}

TEST_F(Blocks, AreForgottenAtAReset) {
  start();
  through(white_noise(23 * kBlock));
  ASSERT_EQ(chain->ResetBuffer(), 0);
  const auto y = through(white_noise(20 * kBlock, 3));
  EXPECT_TRUE(std::all_of(y.begin(), y.begin() + 5760, [](float sample) { return sample == 0.0f; }));
}

/// The model's ring takes 50 ms beyond the chunk that is in work, and the output ring, of 120 ms, goes on for a while.
TEST_F(Blocks, ThatTheModelHasNoRoomForAreLostToItAlone) {
  start(passing, 48000.0f, 1, kBlock, 0.0f, 20.0f);
  hold_the_first_chunk();
  log.take();
  for (int n = 6; n <= 10; ++n) {
    Block block(kBlock, 0.1f);
    ASSERT_EQ(chain->Execute(block.data()), 0) << n;
  }
  EXPECT_THAT(warnings(), ElementsAre());
  for (int n = 11; n <= 12; ++n) {
    Block block(kBlock, 0.1f);
    ASSERT_EQ(chain->Execute(block.data()), WARNING_AI_SPEECH_ENHANCE_BUFF_OVERFLOW) << n;
    EXPECT_EQ(block, Block(kBlock, 0.0f)) << "what was in the output ring";
    EXPECT_THAT(warnings(), ElementsAre("Execute: WARNING_AI_SPEECH_ENHANCE_BUFF_OVERFLOW\n"));
  }
  Block block(kBlock, 0.1f);
  ASSERT_EQ(chain->Execute(block.data()), WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN) << "which overrides the overflow";
  EXPECT_THAT(warnings(), ElementsAre("Execute: WARNING_AI_SPEECH_ENHANCE_BUFF_OVERFLOW\n",
                                      "Execute: WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN\n"));
  log.let_go();
  ASSERT_TRUE(settle());
  EXPECT_EQ(play_silence(), 0) << "and the stream goes on";
}

TEST_F(Blocks, ThatComeBeforeTheModelIsReadyPassAsTheyAre) {
  start(passing, 48000.0f, 1, kBlock, 200.0f, 20.0f);
  hold_the_first_chunk();
  const auto x = white_noise(20 * kBlock);
  Block y = x;
  for (std::size_t n = 0; n < 20; ++n) {
    const int code = chain->Execute(&y[n * kBlock]);
    ASSERT_EQ(code, n < 7 ? 0 : WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN) << "12 blocks in the ring, 5 of them used";
  }
  for (std::size_t i = 7 * kBlock; i < y.size(); ++i) {
    const float expected = x[i - beam_delay()] * 32768.0f * 3.0517578e-5f;  // the scale of the chain in front and back
    ASSERT_EQ(y[i], expected) << i;
  }
}

TEST_F(Blocks, OfASecondChannelPassMixed) {
  CBeamFormingKeyCancel alone;
  ASSERT_EQ(alone.Open(blob.get(), 48000.0f, 2, kBlock), 0);
  ASSERT_EQ(open(passing, 48000.0f, 2, kBlock, 1000.0f, 20.0f), 0);
  ASSERT_EQ(chain->Run(), 0);
  // One channel joins later, so that the chain in front gives each one something else.
  ASSERT_EQ(alone.SetChannel(1), 0);
  ASSERT_EQ(chain->SetChannel(1), 0);
  Block before = white_noise(40 * kBlock);
  for (std::size_t at = 0; at < before.size(); at += kBlock) {
    Block block(before.begin() + static_cast<std::ptrdiff_t>(at),
                before.begin() + static_cast<std::ptrdiff_t>(at + kBlock));
    ASSERT_EQ(play(block), 0);
    alone.Execute(&before[at]);
  }
  ASSERT_EQ(alone.SetChannel(2), 0);
  ASSERT_EQ(chain->SetChannel(2), 0);
  ASSERT_EQ(chain->SetAISpeechEnhanceActive(1), 0);
  log.hold_at("FifoOutput::PushData");
  Block x = white_noise(2 * 20 * kBlock, 2);
  Block y = x;
  std::size_t apart = 0;
  for (std::size_t n = 0; n < 20; ++n) {
    float* const plain = &x[n * 2 * kBlock];
    float* const mixed = &y[n * 2 * kBlock];
    alone.Execute(plain);
    const int code = chain->Execute(mixed);
    ASSERT_EQ(code, n < 12 ? 0 : WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN) << n;
    if (code == 0) continue;
    for (std::size_t f = 0; f < kBlock; ++f) {
      const float mean = (plain[2 * f] + plain[2 * f + 1]) / 2;
      ASSERT_EQ(mixed[2 * f], mean) << "block " << n << ", frame " << f;
      ASSERT_EQ(mixed[2 * f + 1], mean) << "block " << n << ", frame " << f;
      apart += plain[2 * f] != plain[2 * f + 1];
    }
  }
  EXPECT_GT(apart, 1000u) << "or the mean says nothing";
}

/// 5760 samples, at 44100 Hz too: thirteen blocks of 441 and not fourteen.
TEST_F(Blocks, FindTheSameRingsAt44100) {
  start(passing, 44100.0f, 1, 441, 200.0f, 20.0f);
  hold_the_first_chunk(441);
  for (int n = 6; n <= 13; ++n) {
    Block block(441);
    ASSERT_EQ(chain->Execute(block.data()), 0) << n;
  }
  Block block(441);
  EXPECT_EQ(chain->Execute(block.data()), WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN);
}

TEST_F(Blocks, AreHeardAt44100AsLateAsTheRingIsLong) {
  start(passing, 44100.0f, 1, 441);
  const auto x = white_noise(40 * 441);
  // Converters: 16 samples down, and up 16 at 16 kHz, which are 44.1.
  const double expected = static_cast<double>(beam_delay(441)) + 5760.0 + 16.0 + 44.1;
  EXPECT_NEAR(static_cast<double>(delay_between(x, through(x, 441), 9000)), expected, 1.0);
  std::uint32_t told = 0;
  EXPECT_EQ(chain->GetLatency(&told), 0);
  EXPECT_NEAR(told, expected, 0.5);
}

TEST_F(Blocks, FindNoRoomForAWholeChunkThatComesLate) {
  start();
  hold_the_first_chunk();
  log.take();
  ASSERT_EQ(chain->ResetBuffer(), 0);  // the output ring is full again
  log.let_go();
  ASSERT_TRUE(settle());
  EXPECT_THAT(log.take(LogLevel::info3), Contains(testing::EndsWith("return (size=0)\n"))) << "the chunk is dropped";
  const auto x = white_noise(40 * kBlock);
  EXPECT_EQ(delay_between(x, through(x), 9000), beam_delay() + 5760 + 4 * kConverterDelay);
}

/// The first chunk is complete with the block that makes the room for it.
TEST_F(Blocks, MakeRoomForTheChunkThatTheyComplete) {
  start();
  for (int run = 0; run < 20; ++run) {
    log.take();
    for (int n = 1; n <= 5; ++n) ASSERT_EQ(play_silence(), 0);
    const auto messages = log.take(LogLevel::info3);
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                            [](const std::string& text) {
                              return text.starts_with("FifoOutput::PushData") && text.ends_with("return (size=800)\n");
                            }),
              1)
        << "run " << run;
    ASSERT_EQ(chain->Stop(), 0);
    ASSERT_EQ(chain->Run(), 0);
    ASSERT_TRUE(settle());
  }
}

TEST_F(Blocks, ThatAreNullAreRefused) {
  start();
  EXPECT_EQ(chain->Execute(nullptr), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  EXPECT_EQ(play_silence(), 0);
}

}  // namespace
}  // namespace sonivo::test
