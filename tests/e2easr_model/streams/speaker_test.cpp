// Speaker embeddings: what the encoder makes of a recording, and what another model does with it.

#include <gtest/gtest.h>

#include <cmath>

#include "../support/messages.h"
#include "../support/models.h"
#include "e2easr_model/se_model.h"
#include "e2easr_model/spkenc_model.h"

namespace sonivo::e2e::test {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

struct SpeakerEncoder : testing::Test {
  void load(const std::string& network, const Pairs& more = {}, const std::string& flow = "") {
    Pairs symbols = {
        {"sample-frequency", "1000"}, {"frame-length", "2"}, {"frame-shift", "2"}, {"feature-extractor-type", "none"}};
    symbols.insert(symbols.end(), more.begin(), more.end());
    load_bytes(encoder, model_bytes({.magic = "spkb",
                                     .has_preprocessor = flow.empty() ? 0u : 1u,
                                     .preprocessor = flow,
                                     .network = network,
                                     .symbols = symbols}));
  }
  Matrix embed(std::vector<short> recording) {
    return encoder.encode(samples(std::move(recording))).get<Matrix>("embed");
  }

  SpkEncModel encoder;
};

TEST_F(SpeakerEncoder, AveragesTheResultOverTime) {
  load(gains_network({1.0f, -2.0f, 0.5f}));
  const std::vector<short> recording = {100, -300, 2000, 32767, -32768, 17, 5, 6};
  double mean = 0;
  for (const short x : recording) mean += x / 32768.0 / static_cast<double>(recording.size());
  const Matrix result = embed(recording);
  ASSERT_EQ(result.rows(), 3);
  ASSERT_EQ(result.cols(), 1);
  EXPECT_NEAR(result(0), mean, 1e-7);
  EXPECT_NEAR(result(1), -2 * mean, 1e-7);
  EXPECT_NEAR(result(2), 0.5 * mean, 1e-7);
}

TEST_F(SpeakerEncoder, TheLengthOfTheRecordingMakesNoDifference) {
  load(gains_network({1.0f}));
  EXPECT_EQ(embed(std::vector<short>(8, 1024)), embed(std::vector<short>(80000, 1024)));
}

TEST_F(SpeakerEncoder, RecordingsHaveNothingToDoWithEachOther) {
  load(memory_network());
  const Matrix first = embed({100, 200});
  EXPECT_EQ(embed({100, 200}), first);
}

TEST_F(SpeakerEncoder, RunsOnFeaturesToo) {
  load(scales_network("a", {1, 2, 3}), {{"sample-frequency", "16000"},
                                        {"frame-length", "25"},
                                        {"frame-shift", "10"},
                                        {"feature-extractor-type", "lmfb"},
                                        {"num-mel-bins", "3"},
                                        {"dither", "0"}});
  std::vector<short> noise;
  for (int i = 0; i < 4000; ++i) noise.push_back(static_cast<short>(i * 7919 % 20011 - 10000));
  FEManager manager;
  manager.set<int>("num-mel-bins", 3);
  manager.set<float>("dither", 0.0f);
  const auto stream = manager.open_stream(samples(noise));
  std::vector<double> sums(3);
  int count = 0;
  for (std::vector<float> frame; stream->has_next(); ++count) {
    stream->next(frame);
    for (std::size_t i = 0; i < 3; ++i) sums[i] += double{frame[i]} * static_cast<double>(i + 1);
  }
  const Matrix result = embed(noise);
  for (int i = 0; i < 3; ++i) {
    const double expected = sums[static_cast<std::size_t>(i)] / count;
    EXPECT_NEAR(result(i), expected, std::abs(expected) * 1e-6);
  }
}

TEST_F(SpeakerEncoder, PutsFramesThroughThePreprocessor) {
  load(gains_network({1.0f}), {}, flow_text("AffineTransformNode", "<scale>4\n0</scale>"));
  EXPECT_FLOAT_EQ(embed({8, 1, 16, 1})(0), (32.0f + 64.0f) / 4 / 32768);
}

TEST_F(SpeakerEncoder, NeedsFrames) {
  load(gains_network({1.0f}));
  EXPECT_THAT(message_of([&] { embed({}); }), IsMessage("特徴量が取得できない. in spkenc_model.cpp %d"));
  EXPECT_THAT(message_of([&] { embed({1}); }), IsMessage("特徴量が取得できない. in spkenc_model.cpp %d"));
}

TEST_F(SpeakerEncoder, NeedsFramesBehindThePreprocessor) {
  load(gains_network({1.0f}), {},
       flow_text("FrameWindowNode",
                 "<length>9</length><shift>1</shift><headedge type=\"drop\">0</headedge>"
                 "<tailedge type=\"drop\">0</tailedge>"));
  EXPECT_THAT(message_of([&] {
                embed({1, 2, 3, 4});
              }),
              IsMessage("前処理に必要な特徴量が取得できない. in spkenc_model.cpp %d"));
}

TEST_F(SpeakerEncoder, NeedsAResultToAverage) {
  load(thinning_network());
  EXPECT_THAT(message_of([&] { embed({1, 2}); }), IsMessage("特徴量が取得できない. in spkenc_model.cpp %d"));
  EXPECT_FLOAT_EQ(embed({1, 2, 3, 64, 5, 6})(0), 64.0f / 32768);
}

TEST_F(SpeakerEncoder, GivesTheNetworksResultForAMatrixAsItIs) {
  SpkEncModelImpl model;
  EXPECT_THAT(message_of([&] { model.execute(Matrix::Ones(1, 1)); }),
              IsMessage("モデルが読み込まれていない. in encoder_model.cpp %d"));
  std::istringstream stream(model_bytes({.magic = "spkb", .network = memory_network()}));
  model.load(stream, false);
  EXPECT_EQ(model.execute(Matrix::Constant(1, 2, 1000)).get<Matrix>("encoded"),
            (Matrix(2, 2) << 1000, 1000, 1000, 2000).finished());
  EXPECT_EQ(model.execute(Matrix::Constant(1, 1, 1)).get<Matrix>("encoded"), (Matrix(2, 1) << 1, 1001).finished())
      << "it remembers";
}

TEST_F(SpeakerEncoder, NeedsAnInputAndANetwork) {
  EXPECT_THAT(message_of([&] { embed({1}); }), IsMessage("モデルが読み込まれていない. in encoder_model.cpp %d"));
  load(gains_network({1.0f}));
  EXPECT_THAT(message_of([&] { encoder.encode(nullptr); }),
              IsMessage("入力クラスのインスタンスが不正. in spkenc_model.cpp %d"));
}

Matrix column(std::initializer_list<float> values) {
  Matrix matrix(static_cast<Eigen::Index>(values.size()), 1);
  std::copy(values.begin(), values.end(), matrix.data());
  return matrix;
}

/// A model that knows speakers: its rows are scaled by the embedding.
struct SpeakerModel : testing::Test {
  SpeakerModel() { initialize(); }
  void load(const std::string& network) { load_bytes(model, model_bytes({.network = network})); }

  SEModel model;
};

/// Two channels of a sample, scaled by prod1.
std::string speaker_network(const std::vector<float>& scales, const std::string& id = "prod1") {
  return network_bytes(1, 2,
                       {dense_bytes("a", {1, 1}, {0, 0}), layer_bytes(id, "Prod", "Prod" + matrix_bytes(2, 1, scales))},
                       {{"_input", "a"}, {"a", id}, {id, "_output"}});
}

TEST_F(SpeakerModel, StoresTheEmbeddingInItsLayer) {
  load(speaker_network({1, 1}));
  model.set_spk_embedding(column({0.25f, 0.5f}));
  EXPECT_EQ(model.execute(Matrix::Constant(1, 1, 100)).get<Matrix>("enhanced")(0), 50.0f);
  EXPECT_EQ(saved_bytes(model), model_bytes({.network = speaker_network({0.25f, 0.5f})}));
  model.set_spk_embedding(column({4.0f, 8.0f}).transpose());
  EXPECT_EQ(saved_bytes(model), model_bytes({.network = speaker_network({4, 8})}));
}

TEST_F(SpeakerModel, LeavesTheNetworkThatOthersHoldAsItIs) {
  load(speaker_network({1, 1}));
  const auto layer = model.network().layers().at(1);
  model.set_spk_embedding(column({2, 2}));
  EXPECT_NE(model.network().layers().at(1), layer);
  std::ostringstream record;
  layer->dump_binary(record);
  EXPECT_EQ(record.str(), "Prod" + matrix_bytes(2, 1, {1, 1}));
}

TEST_F(SpeakerModel, NeedsTheLayer) {
  load(speaker_network({1, 1}, "prod2"));
  EXPECT_THAT(message_of([&] {
                model.set_spk_embedding(column({1, 1}));
              }),
              IsMessage("話者埋め込みに対応したモデルではない. in encoder_model.cpp %d"));
}

TEST_F(SpeakerModel, NeedsAVectorOfItsSize) {
  load(speaker_network({1, 1}));
  for (const auto& wrong : {column({1}), column({1, 2, 3}), Matrix()}) {
    EXPECT_THAT(message_of([&] { model.set_spk_embedding(wrong); }), testing::StartsWith("話者埋め込みに失敗した("));
  }
  EXPECT_THAT(message_of([&] {
                model.set_spk_embedding(column({1, 2, 3}));
              }),
              IsMessage("話者埋め込みに失敗した(Dimension mismatch in layer prod1). in encoder_model.cpp %d"));
  EXPECT_THAT(message_of([&] { model.set_spk_embedding(Matrix::Ones(2, 2)); }),
              IsMessage("話者埋め込みに失敗した(the embedding is no vector). in encoder_model.cpp %d"));
  EXPECT_EQ(saved_bytes(model), model_bytes({.network = speaker_network({1, 1})})) << "as it was";
}

TEST_F(SpeakerModel, NeedsALayerThatHasAVector) {
  load(network_bytes(1, 1, {meridane::test::relu_bytes("prod1")}, {{"_input", "prod1"}, {"prod1", "_output"}}));
  EXPECT_THAT(message_of([&] { model.set_spk_embedding(column({1})); }),
              IsMessage("話者埋め込みに失敗した(Not implemented). in encoder_model.cpp %d"));
}

TEST_F(SpeakerModel, NeedsALoadedModel) {
  EXPECT_THAT(message_of([&] { model.set_spk_embedding(column({1})); }),
              IsMessage("モデルが読み込まれていない. in encoder_model.cpp %d"));
}

TEST(SpeakerModelDeathTest, NeedsTheInitialisation) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process of its own, in which nothing was initialised
  EXPECT_EXIT(
      {
        SEModel model;
        load_bytes(model, model_bytes({.network = speaker_network({1, 1})}));
        const bool is_told = !is_initialized() && without_lines(message_of([&] {
                                                    model.set_spk_embedding(column({1, 1}));
                                                  })) == "初期化処理が実行されていない. in encoder_model.cpp %d";
        initialize();
        initialize();
        model.set_spk_embedding(column({1, 1}));
        std::_Exit(is_told && is_initialized() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace sonivo::e2e::test
