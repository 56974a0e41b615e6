// Streams of frames, and what they read of their source.

#include "e2easr_model/fe_manager.h"

#include <gtest/gtest.h>

#include "../support/messages.h"
#include "../support/models.h"

namespace sonivo::e2e::test {
namespace {

std::vector<std::vector<float>> frames_of(FEStream& stream) {
  std::vector<std::vector<float>> frames;
  for (std::vector<float> frame; stream.has_next();) {
    stream.next(frame);
    frames.push_back(frame);
  }
  return frames;
}

struct FEStreamTest : testing::Test {
  FEStreamTest() {
    manager.set<std::string>("feature-extractor-type", "none");
    manager.set<float>("sample-frequency", 1000.0f);
    manager.set<float>("frame-length", 5.0f);
    manager.set<float>("frame-shift", 2.0f);
  }
  FEManager manager;
};

TEST_F(FEStreamTest, OfSamplesGivesWhatWasReadForEachFrameAsItIs) {
  const auto stream = manager.open_stream(samples({-32768, 1, 2, 3, 4, 5, 6, 7, 32767, 9}));
  EXPECT_EQ(frames_of(*stream), (std::vector<std::vector<float>>{{-32768, 1, 2, 3, 4}, {5, 6}, {7, 32767}}));
}

TEST_F(FEStreamTest, WithoutNextTheSamplesCollect) {
  const auto stream = manager.open_stream(samples(counted(9)));
  ASSERT_TRUE(stream->has_next());
  ASSERT_TRUE(stream->has_next());
  std::vector<float> frame;
  stream->next(frame);
  EXPECT_EQ(frame, (std::vector<float>{1, 2, 3, 4, 5, 6, 7}));
}

TEST_F(FEStreamTest, OfFeaturesGivesThoseOfTheExtractor) {
  for (const char* const type : {"default", "lmfb"}) {
    FEManager features;
    features.set<std::string>("feature-extractor-type", type);
    features.set<float>("dither", 0.0f);
    features.set<int>("num-mel-bins", 7);
    std::vector<short> ramp;
    for (int i = 0; i < 2000; ++i) ramp.push_back(static_cast<short>(i * 37 % 1001));
    const auto stream = features.open_stream(samples(ramp));
    FeatureOptions options;
    options.dither = 0.0f;
    options.num_mel_bins = 7;
    FrameData reader(options, samples(ramp));
    FeatureExtractor extractor(options);
    std::vector<std::vector<float>> expected;
    for (std::vector<float> frame; reader.has_next();) {
      extractor.compute(reader, frame);
      expected.push_back(frame);
    }
    EXPECT_EQ(frames_of(*stream), expected);
    EXPECT_EQ(expected.size(), 11u);
  }
}

TEST_F(FEStreamTest, TakesItsOptionsFromTheVariables) {
  manager.set<std::string>("window-type", "sine");
  manager.set<bool>("use-energy", true);
  manager.set<int>("recompute-frame", 7);
  manager.set_from_text("vtln-warp", "0.9");
  const FeatureOptions options = manager.options();
  EXPECT_EQ(options.sample_frequency, 1000.0f);
  EXPECT_EQ(options.window_type, "sine");
  EXPECT_TRUE(options.use_energy);
  EXPECT_EQ(options.recompute_frame, 7);
  EXPECT_EQ(options.vtln_warp, 0.9f);
}

struct OtherManager : FEManager {
  struct Type : Component {
    Type() { add_variable<std::string>("feature-extractor-type", "mfcc", false, "", VariableAny()); }
  };
  OtherManager() { take_over(Type(), true); }
};

TEST_F(FEStreamTest, AnExtractorThatIsNotThereIsNamed) {
  const OtherManager other;
  EXPECT_THAT(message_of([&] { other.open_stream(samples({})); }),
              IsMessage("特徴量分析方式\"mfcc\"は未実装. in fe_manager.cpp %d"));
}

TEST_F(FEStreamTest, ABadWindowFailsAsTheStreamBegins) {
  manager.set<std::string>("window-type", "rectangle");
  EXPECT_EQ(message_of([&] { manager.open_stream(samples({})); }), "Error: window_type");
}

TEST(InputSampleWrapper, KeepsACopyOfWhatWasAppended) {
  InputSampleWrapper wrapper(samples(counted(5)));
  std::vector<short> out = {9};
  EXPECT_EQ(wrapper.data(out, 3, false), 3);
  EXPECT_EQ(out, (std::vector<short>{9, 1, 2, 3}));
  EXPECT_EQ(wrapper.samples(), (std::vector<short>{1, 2, 3}));
  EXPECT_FALSE(wrapper.end());
  EXPECT_EQ(wrapper.data(out, 3, false), 2);
  EXPECT_EQ(wrapper.samples(), counted(5));
  EXPECT_TRUE(wrapper.end());
  wrapper.clear();
  EXPECT_TRUE(wrapper.samples().empty());
}

/// Answers what was asked, but appends something else, as sources that serve whole groups do.
struct Liar : Input<short> {
  int data(std::vector<short>& out, int require, bool) override {
    out.insert(out.end(), {1, 2});
    return require;
  }
  bool end() override { return false; }
};

TEST(InputSampleWrapper, GoesByWhatWasAppended) {
  InputSampleWrapper wrapper(std::make_shared<Liar>());
  std::vector<short> out;
  EXPECT_EQ(wrapper.data(out, 100, false), 100);
  EXPECT_EQ(wrapper.samples(), (std::vector<short>{1, 2}));
}

}  // namespace
}  // namespace sonivo::e2e::test
