// Enhancement of a stream: frames into chunks, chunks through the network, the end of the stream.

#include <gtest/gtest.h>

#include <algorithm>

#include "../support/messages.h"
#include "../support/models.h"
#include "e2easr_model/se_model.h"

namespace sonivo::e2e::test {
namespace {

constexpr const char* kNoData = "音声強調に必要なデータが取得できない. in se_model.cpp %d";

/// Frames of two samples, chunks of three frames.
struct EnhancementStream : testing::Test {
  using Symbols = std::vector<std::pair<std::string, std::string>>;

  void load(const std::string& network, const Symbols& more = {}, const std::string& flow = "") {
    Symbols symbols = {{"sample-frequency", "1000"}, {"frame-length", "2"}, {"frame-shift", "2"}};
    symbols.insert(symbols.end(), more.begin(), more.end());
    load_bytes(model, model_bytes({.has_preprocessor = flow.empty() ? 0u : 1u,
                                   .preprocessor = flow,
                                   .network = network,
                                   .symbols = symbols}));
    model.set<bool>("offline", false);
    model.set<int>("chunk-size", 3);
  }

  /// The next chunk's samples; state is kept.
  std::vector<float> next() {
    const E2EResult result = model.getEnhancedResult(state);
    const auto& enhanced = result.get<Matrix>("enhanced");
    return {enhanced.data(), enhanced.data() + enhanced.size()};
  }
  /// All chunks, one behind the other.
  std::vector<float> all() {
    std::vector<float> samples;
    do {
      const std::vector<float> chunk = next();
      samples.insert(samples.end(), chunk.begin(), chunk.end());
    } while (state == 0);
    return samples;
  }

  SEModel model;
  std::uint32_t state = 7;
};

std::vector<float> floats(const std::vector<short>& values) { return {values.begin(), values.end()}; }

TEST_F(EnhancementStream, IsCutIntoChunks) {
  load(gains_network({1.0f}));
  model.startEnhancement(samples(counted(16)));
  EXPECT_EQ(next(), floats(counted(6)));
  EXPECT_EQ(state, 0u);
  EXPECT_EQ(next(), floats(counted(6, 7)));
  EXPECT_EQ(state, 0u);
  EXPECT_EQ(next(), floats(counted(4, 13))) << "the last chunk is partly filled";
  EXPECT_EQ(state, 1u);
}

TEST_F(EnhancementStream, AfterAFullLastChunkAnEmptyOneEndsIt) {
  load(gains_network({1.0f}));
  model.startEnhancement(samples(counted(6)));
  EXPECT_EQ(next(), floats(counted(6)));
  EXPECT_EQ(state, 0u);
  EXPECT_EQ(next(), std::vector<float>());
  EXPECT_EQ(state, 1u);
  EXPECT_EQ(next(), std::vector<float>()) << "and so on";
  EXPECT_EQ(state, 1u);
}

TEST_F(EnhancementStream, ARestThatMakesNoFrameIsDropped) {
  load(gains_network({1.0f}));
  model.startEnhancement(samples(counted(5)));
  EXPECT_EQ(all(), floats(counted(4)));
}

TEST_F(EnhancementStream, WithoutAFrameItFails) {
  load(gains_network({1.0f}));
  model.startEnhancement(samples({1}));
  EXPECT_THAT(message_of([&] { next(); }), IsMessage(kNoData));
  model.set<bool>("offline", true);
  model.startEnhancement(samples({}));
  EXPECT_THAT(message_of([&] { next(); }), IsMessage(kNoData));
}

TEST_F(EnhancementStream, OfflineItIsOneChunk) {
  load(memory_network());
  model.set<bool>("offline", true);
  model.startEnhancement(samples({1, 1, 1, 1, 1, 1, 1, 1}));
  EXPECT_EQ(next(), (std::vector<float>{1, 2, 2, 2, 2, 2, 2, 2}));
  EXPECT_EQ(state, 1u);
}

TEST_F(EnhancementStream, TheNetworksStateGoesFromChunkToChunkAndNotFromRunToRun) {
  load(memory_network());
  for (int run = 0; run < 2; ++run) {
    model.startEnhancement(samples(std::vector<short>(14, 1)));
    std::vector<float> expected(14, 2);
    expected[0] = 1;
    EXPECT_EQ(all(), expected);
  }
}

TEST_F(EnhancementStream, ResetContextGoesAcrossChunksAndBeginsWithTheRun) {
  load(memory_network());
  model.set<int>("reset-context", 4);
  for (int run = 0; run < 2; ++run) {
    model.startEnhancement(samples(std::vector<short>(18, 1)));
    EXPECT_EQ(all(), (std::vector<float>{1, 2, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 2, 1, 2}));
  }
}

TEST_F(EnhancementStream, FirstFramesThatAreLongerAreCountedAsFrames) {
  load(memory_network(), {{"frame-length", "4"}});
  model.set<int>("reset-context", 2);
  model.startEnhancement(samples(std::vector<short>(12, 1)));
  EXPECT_EQ(next().size(), 8u) << "four samples and twice two more";
  EXPECT_EQ(next(), (std::vector<float>{2, 2, 1, 2})) << "the reset lies after two frames, then after two more";
}

TEST_F(EnhancementStream, StrengthActsFromTheNextChunkOn) {
  load(gains_network({1.0f, 0.0f}));
  model.startEnhancement(samples(std::vector<short>(18, 100)));
  EXPECT_EQ(next(), std::vector<float>(6, 0));
  model.set<float>("enhancement-strength", 0.0f);
  EXPECT_EQ(next(), std::vector<float>(6, 100));
  model.set<float>("enhancement-strength", 0.5f);
  EXPECT_EQ(next(), std::vector<float>(6, 50));
}

TEST_F(EnhancementStream, SwitchingActsFromTheNextChunkOn) {
  load(gains_network({1.0f, 0.5f, 0.25f}), {{"is-switching-se", "true"}});
  model.startEnhancement(samples(std::vector<short>(18, 100)));
  EXPECT_EQ(next(), std::vector<float>(6, 25));
  model.set<float>("switching-strength", 0.0f);
  EXPECT_EQ(next(), std::vector<float>(6, 50));
  model.set<float>("switching-strength", 0.5f);
  EXPECT_EQ(next(), std::vector<float>(6, 37.5f));
}

/// A source that gives at most so many samples at once.
class Pieces : public Samples {
 public:
  Pieces(std::vector<short> samples, int most) : Samples(std::move(samples)), most_(most) {}
  int data(std::vector<short>& out, int require, bool trancate) override {
    return Samples::data(out, std::min(require, most_), trancate);
  }

 private:
  int most_;
};

TEST_F(EnhancementStream, ChunksAndPiecesOfAnySizeGiveTheSame) {
  load(memory_network());
  std::vector<float> expected;  // x plus the sample before
  for (int x = 1; x <= 60; ++x) expected.push_back(static_cast<float>(x + x - 1));
  for (const int chunk_size : {1, 2, 3, 7, 30, 31}) {
    for (const int most : {1, 2, 3, 100}) {
      model.set<int>("chunk-size", chunk_size);
      model.startEnhancement(std::make_shared<Pieces>(counted(60), most));
      EXPECT_EQ(all(), expected) << chunk_size << " frames, " << most << " samples";
    }
  }
}

TEST_F(EnhancementStream, OverlapPutsTheFramesBeforeAheadAndTrimsNothing) {
  load(gains_network({1.0f}), {{"overlap", "1"}});
  model.startEnhancement(samples(counted(20)));
  EXPECT_EQ(next(), floats(counted(10))) << "chunk and twice the overlap";
  EXPECT_EQ(next(), floats(counted(10, 9))) << "begins with the last frame of the chunk before";
  EXPECT_EQ(state, 0u);
  EXPECT_EQ(next(), (std::vector<float>{17, 18, 19, 20}));
  EXPECT_EQ(state, 1u);
}

TEST_F(EnhancementStream, OverlapBeyondTheChunkBeforeIsFilledWithZeros) {
  load(gains_network({1.0f}), {{"overlap", "1"}});
  model.set<int>("chunk-size", 1);
  model.startEnhancement(samples(counted(16)));
  EXPECT_EQ(next(), floats(counted(6)));
  model.set_from_text("overlap", "4");
  EXPECT_EQ(next(), (std::vector<float>{0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}));
}

TEST_F(EnhancementStream, GoesThroughThePreprocessor) {
  load(gains_network({1.0f}), {}, flow_text("AffineTransformNode", "<matrix>0 2\n2 0</matrix>"));
  model.startEnhancement(samples(counted(8)));
  EXPECT_EQ(all(), (std::vector<float>{4, 2, 8, 6, 12, 10, 16, 14}));
  model.set<bool>("offline", true);
  model.startEnhancement(samples(counted(8)));
  EXPECT_EQ(next(), (std::vector<float>{4, 2, 8, 6, 12, 10, 16, 14}));
}

TEST_F(EnhancementStream, WhatThePreprocessorHoldsBackComesAtTheEnd) {
  const std::string pairs =
      "<length>2</length><shift>1</shift><headedge type=\"repeat\">0</headedge><tailedge type=\"repeat\">1</tailedge>";
  load(gains_network({1.0f}), {}, flow_text("FrameWindowNode", pairs));
  const std::vector<float> expected = {1, 2, 3, 4, 3, 4, 5, 6, 5, 6, 7, 8, 7, 8, 7, 8};
  for (int run = 0; run < 2; ++run) {
    model.startEnhancement(samples(counted(8)));
    EXPECT_EQ(all(), expected);
    EXPECT_EQ(next(), std::vector<float>()) << "only once";
  }
}

TEST_F(EnhancementStream, NeedsAStart) {
  load(gains_network({1.0f}));
  const std::string not_started = "音声強調開始処理が実行されていない. in se_model.cpp %d";
  EXPECT_THAT(message_of([&] { next(); }), IsMessage(not_started));
  model.startEnhancement(nullptr);
  EXPECT_THAT(message_of([&] { next(); }), IsMessage(not_started));
  model.startEnhancement(samples(counted(6)));
  model.stopEnhancement();
  EXPECT_THAT(message_of([&] { next(); }), IsMessage(not_started));
}

TEST_F(EnhancementStream, AStartThatFailsOrHasNoInputEndsTheRunBefore) {
  load(gains_network({1.0f}));
  const std::string not_started = "音声強調開始処理が実行されていない. in se_model.cpp %d";
  const auto source = samples(counted(18));
  model.startEnhancement(source);
  model.startEnhancement(nullptr);
  EXPECT_EQ(source.use_count(), 1);
  EXPECT_THAT(message_of([&] { next(); }), IsMessage(not_started));
  model.startEnhancement(source);
  model.set<std::string>("window-type", "rectangle");
  EXPECT_EQ(message_of([&] { model.startEnhancement(samples({})); }), "Error: window_type");
  EXPECT_EQ(source.use_count(), 1);
  EXPECT_THAT(message_of([&] { next(); }), IsMessage(not_started));
}

TEST_F(EnhancementStream, FramesOfSeveralSizesAreNoFeatures) {
  load(gains_network({1.0f}), {{"frame-length", "6"}});
  model.startEnhancement(samples(counted(18)));
  model.set<std::string>("feature-extractor-type", "lmfb");
  EXPECT_THAT(message_of([&] { next(); }), IsMessage("frames of one step differ in size. in encoder_model.cpp %d"));
}

TEST_F(EnhancementStream, NeedsALoadedModel) {
  const std::string not_loaded = "モデルが読み込まれていない. in encoder_model.cpp %d";
  EXPECT_THAT(message_of([&] { next(); }), IsMessage(not_loaded));
  EXPECT_THAT(message_of([&] { model.startEnhancement(samples({})); }), IsMessage(not_loaded));
  EXPECT_THAT(message_of([&] { model.stopEnhancement(); }), IsMessage(not_loaded));
}

TEST_F(EnhancementStream, GoesOnThroughAnotherModel) {
  load(gains_network({1.0f}));
  model.startEnhancement(samples(counted(18)));
  EXPECT_EQ(next(), floats(counted(6)));
  model.set<float>("enhancement-strength", 0.25f);
  model.unload();
  EXPECT_EQ(model.get<float>("enhancement-strength"), 1.0f);
  load(gains_network({2.0f}));
  EXPECT_EQ(next(), (std::vector<float>{14, 16, 18, 20, 22, 24}));
  EXPECT_EQ(next(), (std::vector<float>{26, 28, 30, 32, 34, 36}));
}

TEST_F(EnhancementStream, MayEndBeforeAFrameComesToAnotherModel) {
  load(gains_network({1.0f}));
  model.startEnhancement(samples(counted(6)));
  EXPECT_EQ(next(), floats(counted(6)));
  model.unload();
  load(gains_network({2.0f}));
  EXPECT_EQ(next(), std::vector<float>());
  EXPECT_EQ(state, 1u);
  model.startEnhancement(samples({}));
  EXPECT_THAT(message_of([&] { next(); }), IsMessage(kNoData)) << "a run of its own";
}

TEST_F(EnhancementStream, ABadWindowFailsAtItsStart) {
  load(gains_network({1.0f}), {{"window-type", "rectangle"}});
  EXPECT_TRUE(model.is_loaded());
  EXPECT_EQ(message_of([&] { model.startEnhancement(samples({})); }), "Error: window_type");
}

TEST_F(EnhancementStream, OfFeaturesRunsTheExtractor) {
  load(network_bytes(3, 1, {dense_bytes("a", {1, 0, 0}, {0})}, {{"_input", "a"}, {"a", "_output"}}),
       {{"feature-extractor-type", "lmfb"},
        {"sample-frequency", "16000"},
        {"frame-length", "25"},
        {"frame-shift", "10"},
        {"num-mel-bins", "3"},
        {"dither", "0"}});
  FEManager manager;
  manager.set<int>("num-mel-bins", 3);
  manager.set<float>("dither", 0.0f);
  std::vector<short> noise;
  for (int i = 0; i < 16000; ++i) noise.push_back(static_cast<short>(i * 7919 % 20011 - 10000));
  const auto stream = manager.open_stream(samples(noise));
  std::vector<float> expected;
  for (std::vector<float> frame; stream->has_next();) {
    stream->next(frame);
    expected.push_back(frame.at(0));
  }
  model.startEnhancement(samples(noise));
  EXPECT_EQ(all(), expected);
  EXPECT_EQ(expected.size(), 98u);
}

TEST_F(EnhancementStream, OptionsOfPitchAreTakenAndChangeNothing) {
  const std::string network =
      network_bytes(3, 1, {dense_bytes("a", {1, 1, 1}, {0})}, {{"_input", "a"}, {"a", "_output"}});
  std::vector<std::pair<std::string, std::string>> symbols = {{"feature-extractor-type", "lmfb"},
                                                              {"sample-frequency", "16000"},
                                                              {"frame-length", "25"},
                                                              {"frame-shift", "10"},
                                                              {"num-mel-bins", "3"},
                                                              {"dither", "0"}};
  std::vector<short> noise;
  for (int i = 0; i < 4000; ++i) noise.push_back(static_cast<short>(i * 7919 % 20011 - 10000));
  load(network, symbols);
  model.startEnhancement(samples(noise));
  const std::vector<float> expected = all();
  ASSERT_EQ(expected.size(), 23u);
  for (const char* const name :
       {"min-f0", "max-f0", "soft-min-f0", "penalty-factor", "lowpass-cutoff", "resample-frequency", "delta-pitch",
        "nccf-ballast", "lowpass-filter-width", "upsample-filter-width", "max-frames-latency", "frames-per-chunk",
        "recompute-frame", "min-duration", "max-feature-vectors"}) {
    symbols.emplace_back(name, "3");
  }
  for (const char* const name : {"simulate-first-pass-online", "nccf-ballast-online", "subtract-mean",
                                 "allow-downsample", "allow-upsample", "htk-mode"}) {
    symbols.emplace_back(name, "true");
  }
  model.unload();
  load(network, symbols);
  model.startEnhancement(samples(noise));
  EXPECT_EQ(all(), expected);
}

}  // namespace
}  // namespace sonivo::e2e::test
