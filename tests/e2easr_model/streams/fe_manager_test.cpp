// Streams of frames, and what they read of their source.

#include "e2easr_model/fe_manager.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <variant>

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

using O = FeatureOptions;
using Option = std::variant<float O::*, bool O::*, int O::*, std::string O::*>;

const std::vector<std::pair<const char*, Option>> kOptions = {
    {"sample-frequency", &O::sample_frequency},
    {"frame-length", &O::frame_length},
    {"frame-shift", &O::frame_shift},
    {"dither", &O::dither},
    {"preemphasis-coefficient", &O::preemphasis_coefficient},
    {"remove-dc-offset", &O::remove_dc_offset},
    {"window-type", &O::window_type},
    {"round-to-power-of-two", &O::round_to_power_of_two},
    {"blackman-coeff", &O::blackman_coeff},
    {"snip-edges", &O::snip_edges},
    {"allow-downsample", &O::allow_downsample},
    {"allow-upsample", &O::allow_upsample},
    {"max-feature-vectors", &O::max_feature_vectors},
    {"num-mel-bins", &O::num_mel_bins},
    {"low-freq", &O::low_freq},
    {"high-freq", &O::high_freq},
    {"vtln-low", &O::vtln_low},
    {"vtln-high", &O::vtln_high},
    {"debug-mel", &O::debug_mel},
    {"htk-mode", &O::htk_mode},
    {"use-energy", &O::use_energy},
    {"energy-floor", &O::energy_floor},
    {"raw-energy", &O::raw_energy},
    {"htk-compat", &O::htk_compat},
    {"use-log-fbank", &O::use_log_fbank},
    {"use-power", &O::use_power},
    {"min-f0", &O::min_f0},
    {"max-f0", &O::max_f0},
    {"soft-min-f0", &O::soft_min_f0},
    {"penalty-factor", &O::penalty_factor},
    {"lowpass-cutoff", &O::lowpass_cutoff},
    {"resample-frequency", &O::resample_frequency},
    {"delta-pitch", &O::delta_pitch},
    {"nccf-ballast", &O::nccf_ballast},
    {"lowpass-filter-width", &O::lowpass_filter_width},
    {"upsample-filter-width", &O::upsample_filter_width},
    {"max-frames-latency", &O::max_frames_latency},
    {"frames-per-chunk", &O::frames_per_chunk},
    {"simulate-first-pass-online", &O::simulate_first_pass_online},
    {"recompute-frame", &O::recompute_frame},
    {"nccf-ballast-online", &O::nccf_ballast_online},
    {"subtract-mean", &O::subtract_mean},
    {"vtln-warp", &O::vtln_warp},
    {"min-duration", &O::min_duration},
};

/// A value that is valid for every variable of the type and the default of none with this one.
template <class T>
T other_than(const T& value) {
  if constexpr (std::is_same_v<T, float>) return 0.5f;
  if constexpr (std::is_same_v<T, int>) return 7;
  if constexpr (std::is_same_v<T, bool>) return !value;
  if constexpr (std::is_same_v<T, std::string>) return "sine";
}

TEST(FEManager, EachVariableSetsItsOptionAndNoOther) {
  ASSERT_EQ(kOptions.size() + 1, FEManager().variables().size());  // the type is not the extractor's
  for (const auto& [set_name, set_option] : kOptions) {
    SCOPED_TRACE(set_name);
    FEManager manager;
    const auto set = [&, name = set_name]<class T>(T O::*option) { manager.set<T>(name, other_than(O().*option)); };
    std::visit(set, set_option);
    const FeatureOptions options = manager.options();
    for (const auto& [name, option] : kOptions) {
      const auto check = [&, is_set = option == set_option, text = name]<class T>(T O::*value) {
        EXPECT_EQ(options.*value, is_set ? other_than(O().*value) : O().*value) << text;
      };
      std::visit(check, option);
    }
  }
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
