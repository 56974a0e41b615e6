// Voice activity: classes, hang-over, margins, and enhancement along with it.

#include <gtest/gtest.h>

#include "../support/messages.h"
#include "../support/models.h"
#include "e2easr_model/vad_model.h"

namespace sonivo::e2e::test {
namespace {

using testing::ElementsAre;

const std::vector<std::pair<std::string, std::string>> kTwoSampleFrames = {
    {"sample-frequency", "1000"}, {"frame-length", "2"}, {"frame-shift", "2"}, {"feature-extractor-type", "none"}};

/// A frame of two samples for each letter: 's' speech, small values, '.' silence, large ones. All differ.
std::vector<short> signal(const std::string& letters) {
  std::vector<short> values;
  for (const char letter : letters) {
    for (int i = 0; i < 2; ++i) {
      values.push_back(static_cast<short>((letter == 's' ? 1 : 30000) + static_cast<int>(values.size())));
    }
  }
  return values;
}

void load_vad(VADModel& model, const std::string& network = gains_network({1.0f})) {
  load_bytes(model, model_bytes({.magic = "vadb", .network = network, .symbols = kTwoSampleFrames}));
  model.set<int>("chunk-size", 1);
}

void load_se(SEModel& model, const std::string& network) {
  load_bytes(model, model_bytes({.network = network, .symbols = kTwoSampleFrames}));
  model.set<bool>("offline", false);
  model.set<int>("chunk-size", 1);
}

/// The network's result is the sample itself, at full scale: above 0.5 nobody speaks.
struct Vad : testing::Test {
  Vad() { load_vad(model); }

  Matrix row(std::initializer_list<float> values) const {
    Matrix matrix(1, static_cast<Eigen::Index>(values.size()));
    std::copy(values.begin(), values.end(), matrix.data());
    return matrix;
  }
  /// 'A' active and in hang-over, 'a' active, 'h' hang-over, '.' neither: of each chunk, one behind the other.
  std::string flags(const std::string& letters) {
    model.startVAD(samples(signal(letters)));
    std::string text;
    inputs.clear();
    std::uint32_t state = 0;
    while (state == 0) {
      const E2EResult vad = model.getVADResult(state).get<E2EResult>("vad");
      const auto& input = vad.get<std::vector<short>>("input");
      inputs.insert(inputs.end(), input.begin(), input.end());
      if (input.empty()) continue;
      const bool active = vad.get<bool>("active");
      text += vad.get<bool>("hangover") ? (active ? 'A' : 'h') : active ? 'a' : '.';
    }
    return text;
  }

  VADModel model;
  std::vector<short> inputs;
};

TEST_F(Vad, GivesAValuePerFrameAndFindsSpeechWhereNotAllAreAboveTheThreshold) {
  const E2EResult speech = model.execute(row({32767, 16384, 32767}));
  EXPECT_EQ(speech.get<Matrix>("prob"), row({32767.0f / 32768, 0.5f, 32767.0f / 32768}));
  EXPECT_TRUE(speech.get<bool>("active")) << "0.5 isn't above 0.5";
  EXPECT_FALSE(speech.get<bool>("hangover"));
  const E2EResult silence = model.execute(row({32767, 16385, 32767}));
  EXPECT_FALSE(silence.get<bool>("active"));
  model.set<float>("thr-vad", 0.9999f);
  EXPECT_TRUE(model.execute(row({32767, 16385, 32767})).get<bool>("active"));
}

TEST_F(Vad, OfNothingIsInactive) {
  model.set<int>("hangover", 5);
  const E2EResult result = model.execute(Matrix(1, 0));
  EXPECT_EQ(result.get<Matrix>("prob").size(), 0);
  EXPECT_FALSE(result.get<bool>("active"));
  EXPECT_FALSE(result.get<bool>("hangover"));
}

TEST_F(Vad, TakesTheFirstRowOfTheNetwork) {
  model.unload();
  load_vad(model, gains_network({1.0f, 0.0f}));
  EXPECT_EQ(model.execute(row({16384})).get<Matrix>("prob"), row({0.5f}));
}

TEST_F(Vad, HangoverStaysUntilItsChunksAreCounted) {
  EXPECT_EQ(flags("s..s.."), "a..a..") << "0: none";
  model.set<int>("hangover", 1);
  EXPECT_EQ(flags("s..s.."), "A..A..");
  model.set<int>("hangover", 3);
  EXPECT_EQ(flags(".s....ss..s...."), ".Ahh..AAhhAhh..");
}

TEST_F(Vad, EachChunkIsGivenOnceInOrder) {
  for (const int head : {0, 1, 3, 20}) {
    model.set<int>("head-margin", head);
    flags("..s...s.");
    EXPECT_EQ(inputs, signal("..s...s.")) << head;
  }
}

TEST_F(Vad, HeadMarginReachesAheadOfSpeech) {
  model.set<int>("head-margin", 2);
  EXPECT_EQ(flags("....s...s..s"), "..aaa.aaaaaa");
  EXPECT_EQ(flags("s"), "a");
  EXPECT_EQ(flags("..."), "...");
}

TEST_F(Vad, TailMarginReachesBehindSpeech) {
  model.set<int>("tail-margin", 2);
  EXPECT_EQ(flags("s....s.s...."), "aaa..aaaaa..");
}

TEST_F(Vad, MarginsLieAroundTheHangoverToo) {
  model.set<int>("head-margin", 1);
  model.set<int>("tail-margin", 1);
  model.set<int>("hangover", 2);
  EXPECT_EQ(flags("..s.....s..."), ".aAha..aAha.");
}

TEST_F(Vad, ChunksHaveTheirSize) {
  model.set<int>("chunk-size", 3);
  model.startVAD(samples(signal("ss.....s")));
  std::uint32_t state = 0;
  std::vector<std::size_t> sizes;
  std::string active;
  while (state == 0) {
    const E2EResult vad = model.getVADResult(state).get<E2EResult>("vad");
    sizes.push_back(vad.get<std::vector<short>>("input").size());
    active += vad.get<bool>("active") ? 'a' : '.';
  }
  EXPECT_THAT(sizes, ElementsAre(6, 6, 4));
  EXPECT_EQ(active, "a.a");
}

TEST_F(Vad, RunsAreAlike) {
  model.set<int>("hangover", 3);
  model.set<int>("tail-margin", 3);
  const std::string first = flags("..s.s");
  EXPECT_EQ(flags("..s.s"), first);
}

TEST_F(Vad, NeedsAStartAndFrames) {
  std::uint32_t state = 0;
  const auto next = [&] { model.getVADResult(state); };
  const char* const not_started = "音声区間検出開始処理が実行されていない. in vad_model.cpp %d";
  EXPECT_THAT(message_of(next), IsMessage(not_started));
  model.startVAD(nullptr);
  EXPECT_THAT(message_of(next), IsMessage(not_started));
  model.startVAD(samples({}));
  EXPECT_THAT(message_of(next), IsMessage("VADに必要な特徴量が取得できない. in vad_model.cpp %d"));
  model.stopVAD();
  EXPECT_THAT(message_of(next), IsMessage(not_started));
  model.unload();
  EXPECT_THAT(message_of(next), IsMessage("モデルが読み込まれていない. in encoder_model.cpp %d"));
}

TEST_F(Vad, EnhancesWithAnSEModel) {
  SEModel enhancement;
  load_se(enhancement, memory_network());
  model.set_se_model(enhancement);
  model.set<int>("head-margin", 1);
  model.startVAD(samples({10, 20, 30, 40, 50, 60}));
  std::uint32_t state = 0;
  std::vector<float> enhanced;
  while (state == 0) {
    const E2EResult result = model.getVADResult(state);
    const auto& part = result.get<Matrix>("enhanced");
    EXPECT_EQ(static_cast<std::size_t>(part.size()),
              result.get<E2EResult>("vad").get<std::vector<short>>("input").size());
    enhanced.insert(enhanced.end(), part.data(), part.data() + part.size());
  }
  EXPECT_THAT(enhanced, ElementsAre(10, 30, 50, 70, 90, 110));
  model.stopVAD();
}

TEST_F(Vad, AnSEModelIsEnhancedWithFromTheNextStartOn) {
  SEModel enhancement;
  load_se(enhancement, gains_network({1.0f}));
  const auto is_enhanced = [&] {
    std::uint32_t state = 0;
    return model.getVADResult(state).has("enhanced");
  };
  model.startVAD(samples(signal("ss")));
  model.set_se_model(enhancement);
  EXPECT_FALSE(is_enhanced());
  model.startVAD(samples(signal("ss")));
  EXPECT_TRUE(is_enhanced());
  SEModel other;
  load_se(other, gains_network({1.0f}));
  model.set_se_model(other);
  EXPECT_TRUE(is_enhanced()) << "by the one it was started with";
}

TEST_F(Vad, ASegmentIsNotLostWhenItsEnhancementFails) {
  SEModel enhancement;
  load_se(enhancement, gains_network({1.0f}));
  model.set_se_model(enhancement);
  model.startVAD(samples(signal("sss")));
  std::uint32_t state = 0;
  const auto next = [&] { return model.getVADResult(state).get<E2EResult>("vad").get<std::vector<short>>("input"); };
  EXPECT_THAT(next(), ElementsAre(1, 2));
  enhancement.stopEnhancement();
  EXPECT_THAT(message_of(next), IsMessage("音声強調開始処理が実行されていない. in se_model.cpp %d"));
  EXPECT_THAT(next(), ElementsAre(3, 4));
  enhancement.unload();
  EXPECT_THAT(message_of(next), IsMessage("モデルが読み込まれていない. in encoder_model.cpp %d"));
  EXPECT_EQ(message_of([&] { model.stopVAD(); }), "");
}

TEST_F(Vad, WithAnSEModelThatHasAVADModelOfItsOwnEverythingIsEnhanced) {
  VADModel gate;
  load_vad(gate);
  SEModel enhancement;
  load_se(enhancement, gains_network({1.0f}));
  enhancement.set_vad(gate);
  model.set_se_model(enhancement);
  model.startVAD(samples({30000, 30001}));
  std::uint32_t state = 0;
  EXPECT_EQ(model.getVADResult(state).get<Matrix>("enhanced"), row({30000, 30001}));
}

TEST_F(Vad, ModelsCannotRunEachOther) {
  SEModel enhancement;
  load_se(enhancement, gains_network({1.0f}));
  enhancement.set_vad(model);
  EXPECT_THAT(message_of([&] { model.set_se_model(enhancement); }),
              IsMessage("the models would run each other. in vad_model.cpp %d"));
  SEModel second;
  load_se(second, gains_network({1.0f}));
  model.set_se_model(second);
  EXPECT_THAT(message_of([&] { second.set_vad(model); }),
              IsMessage("the models would run each other. in se_model.cpp %d"));
}

TEST_F(Vad, StoppedItHoldsItsSourceNoMore) {
  const auto source = samples(signal("ss"));
  model.startVAD(source);
  model.stopVAD();
  EXPECT_EQ(source.use_count(), 1);
  model.startVAD(source);
  model.startVAD(nullptr);
  EXPECT_EQ(source.use_count(), 1);
}

TEST_F(Vad, GoesThroughThePreprocessorAndOnThroughAnotherModel) {
  const auto load = [&](const std::string& scale) {
    load_bytes(model, model_bytes({.magic = "vadb",
                                   .has_preprocessor = 1,
                                   .preprocessor = flow_text("AffineTransformNode", "<scale>" + scale + "</scale>"),
                                   .network = gains_network({1.0f}),
                                   .symbols = kTwoSampleFrames}));
    model.set<int>("chunk-size", 1);
  };
  model.unload();
  load("0\n0");
  model.startVAD(samples(signal("s.s.")));
  std::uint32_t state = 0;
  const auto next = [&] { return model.getVADResult(state).get<E2EResult>("vad"); };
  EXPECT_TRUE(next().get<bool>("active"));
  E2EResult silence = next();
  EXPECT_TRUE(silence.get<bool>("active")) << "zeros are speech";
  EXPECT_THAT(silence.get<std::vector<short>>("input"), ElementsAre(30002, 30003)) << "the source's own";
  model.unload();
  load("1\n1");
  EXPECT_TRUE(next().get<bool>("active"));
  EXPECT_FALSE(next().get<bool>("active"));
}

TEST_F(Vad, RunsOnFeaturesToo) {
  model.unload();
  const std::string first =
      network_bytes(3, 1, {dense_bytes("a", {1, 0, 0}, {0})}, {{"_input", "a"}, {"a", "_output"}});
  load_bytes(model, model_bytes({.magic = "vadb", .network = first, .symbols = {{"num-mel-bins", "3"}}}));
  Matrix features(3, 2);
  features << 0.25f, 40.0f,  //
      9, 9,                  //
      9, 9;
  const E2EResult result = model.execute(features);
  EXPECT_EQ(result.get<Matrix>("prob"), row({0.25f, 40})) << "neither scaled nor clamped";
  EXPECT_TRUE(result.get<bool>("active"));
  model.set<int>("chunk-size", 2);
  model.startVAD(samples(std::vector<short>(400 + 3 * 160, 0)));
  std::uint32_t state = 0;
  const auto next = [&] { return model.getVADResult(state).get<E2EResult>("vad").get<std::vector<short>>("input"); };
  EXPECT_EQ(next().size(), 400u + 160u);
  EXPECT_EQ(next().size(), 160u + 160u);
}

TEST_F(Vad, RefusesSEModelsThatDoNotFit) {
  SEModel enhancement;
  EXPECT_THAT(message_of([&] { model.set_se_model(enhancement); }),
              IsMessage("設定するSEモデルが読み込まれていない. in vad_model.cpp %d"));
  load_se(enhancement, gains_network({1.0f}));
  for (const char* const name : {"sample-frequency", "frame-length", "frame-shift"}) {
    const float fits = enhancement.get<float>(name);
    enhancement.set<float>(name, fits * 2);
    EXPECT_THAT(message_of([&] { model.set_se_model(enhancement); }),
                IsMessage("分析条件が適合しないモデルを設定することはできない. in vad_model.cpp %d"))
        << name;
    enhancement.set<float>(name, fits);
  }
  enhancement.set_from_text("overlap", "1");
  EXPECT_THAT(message_of([&] { model.set_se_model(enhancement); }),
              IsMessage("overlapが1以上のSEモデルをセットすることはできない. in vad_model.cpp %d"));
  enhancement.set_from_text("overlap", "0");
  EXPECT_EQ(message_of([&] { model.set_se_model(enhancement); }), "");
}

/// Enhancement of what is speech only.
struct GatedEnhancement : Vad {
  GatedEnhancement() { load_se(enhancement, memory_network()); }

  struct Chunk {
    std::vector<float> samples;
    std::uint32_t state;
    bool operator==(const Chunk&) const = default;
  };
  Chunk next() {
    std::uint32_t state = 7;
    const E2EResult result = enhancement.getEnhancedResult(state);
    const auto& enhanced = result.get<Matrix>("enhanced");
    return {{enhanced.data(), enhanced.data() + enhanced.size()}, state};
  }

  SEModel enhancement;
};

TEST_F(GatedEnhancement, SkipsSilenceAndBeginsAnewBehindIt) {
  enhancement.set_vad(model);
  enhancement.startEnhancement(samples({1, 1, 1, 1, 30000, 30000, 1, 1, 1, 1}));
  EXPECT_EQ(next(), (Chunk{{1, 2}, 0}));
  EXPECT_EQ(next(), (Chunk{{2, 2}, 0}));
  EXPECT_EQ(next(), (Chunk{{}, 0})) << "silence";
  EXPECT_EQ(next(), (Chunk{{1, 2}, 0})) << "the network has forgotten";
  EXPECT_EQ(next(), (Chunk{{2, 2}, 0}));
  EXPECT_EQ(next(), (Chunk{{}, 1}));
  enhancement.stopEnhancement();
}

TEST_F(GatedEnhancement, KeepsWhatTheNextFrameReachesBackTo) {
  enhancement.set<float>("frame-length", 3.0f);
  enhancement.set<float>("frame-shift", 2.0f);
  enhancement.set_vad(model);
  enhancement.startEnhancement(samples({30000, 30001, 7, 7}));
  EXPECT_EQ(next(), (Chunk{{}, 0}));
  EXPECT_EQ(next().samples, (std::vector<float>{30001, 30008, 14})) << "one sample of the silence, then the speech";
}

TEST_F(GatedEnhancement, FillsAChunkFromSeveralOfTheVADModel) {
  enhancement.set<int>("chunk-size", 2);
  enhancement.set_vad(model);
  enhancement.startEnhancement(samples(signal("sss.ss")));
  EXPECT_EQ(next(), (Chunk{{1, 3, 5, 7}, 0}));
  EXPECT_EQ(next(), (Chunk{{9, 11}, 0})) << "what was speech before the silence";
  EXPECT_EQ(next(), (Chunk{{9, 19, 21, 23}, 0}));
  EXPECT_EQ(next(), (Chunk{{}, 1}));
}

TEST_F(GatedEnhancement, TakesSeveralChunksFromOneOfTheVADModel) {
  model.set<int>("chunk-size", 2);
  enhancement.set_vad(model);
  enhancement.startEnhancement(samples(signal("ssss")));
  EXPECT_EQ(next(), (Chunk{{1, 3}, 0}));
  EXPECT_EQ(next(), (Chunk{{5, 7}, 0}));
  EXPECT_EQ(next(), (Chunk{{9, 11}, 0}));
  EXPECT_EQ(next(), (Chunk{{13, 15}, 0}));
  EXPECT_EQ(next(), (Chunk{{}, 1}));
}

TEST_F(GatedEnhancement, TakesHangoverForSpeech) {
  model.set<int>("hangover", 2);
  enhancement.set_vad(model);
  enhancement.startEnhancement(samples(signal("s..")));
  EXPECT_EQ(next().samples.size(), 2u);
  EXPECT_EQ(next().samples.size(), 2u);
  EXPECT_EQ(next(), (Chunk{{}, 0}));
}

TEST_F(GatedEnhancement, OfSilenceOnlyIsEmpty) {
  enhancement.set_vad(model);
  enhancement.startEnhancement(samples(signal("..")));
  EXPECT_EQ(next(), (Chunk{{}, 0}));
  EXPECT_EQ(next(), (Chunk{{}, 0}));
  EXPECT_EQ(next(), (Chunk{{}, 1}));
}

TEST_F(GatedEnhancement, OfflineEverythingIsEnhanced) {
  enhancement.set<bool>("offline", true);
  enhancement.set_vad(model);
  enhancement.startEnhancement(samples(signal("s.s")));
  EXPECT_EQ(next().samples.size(), 6u);
}

TEST_F(GatedEnhancement, EndsWithTheModelsLoading) {
  enhancement.set_vad(model);
  enhancement.unload();
  load_se(enhancement, gains_network({1.0f}));
  enhancement.startEnhancement(samples(signal(".")));
  EXPECT_EQ(next().samples, (std::vector<float>{30000, 30001}));
}

TEST_F(GatedEnhancement, ARunKeepsItsVADModel) {
  enhancement.set_vad(model);
  enhancement.startEnhancement(samples(signal("s.ss")));
  EXPECT_EQ(next(), (Chunk{{1, 3}, 0}));
  VADModel other;
  load_vad(other);
  enhancement.set_vad(other);
  EXPECT_EQ(next(), (Chunk{{}, 0})) << "silence to the first one; the other was not started";
  enhancement.unload();
  load_se(enhancement, gains_network({1.0f}));
  EXPECT_EQ(next(), (Chunk{{5, 6}, 0})) << "the stream goes on through another network";
  model.unload();
  EXPECT_THAT(message_of([&] { next(); }), IsMessage("モデルが読み込まれていない. in encoder_model.cpp %d"));
  EXPECT_EQ(message_of([&] { enhancement.stopEnhancement(); }), "");
}

TEST_F(GatedEnhancement, StoppedTheSourceIsHeldNoMore) {
  const auto source = samples(signal("ss"));
  enhancement.set_vad(model);
  enhancement.startEnhancement(source);
  enhancement.stopEnhancement();
  EXPECT_EQ(source.use_count(), 1);
  enhancement.startEnhancement(source);
  enhancement.set<bool>("offline", true);
  enhancement.startEnhancement(nullptr);
  EXPECT_EQ(source.use_count(), 1);
}

TEST_F(GatedEnhancement, NeedsAFrame) {
  enhancement.set_vad(model);
  enhancement.startEnhancement(samples({1}));
  EXPECT_THAT(message_of([&] { next(); }), IsMessage("VADに必要な特徴量が取得できない. in vad_model.cpp %d"));
}

TEST_F(GatedEnhancement, NeedsALoadedVADModel) {
  const VADModel empty;
  EXPECT_THAT(message_of([&] { enhancement.set_vad(empty); }),
              IsMessage("設定するVADモデルが読み込まれていない. in se_model.cpp %d"));
}

}  // namespace
}  // namespace sonivo::e2e::test
