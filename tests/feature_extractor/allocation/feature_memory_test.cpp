// What feature extraction allocates: its tables and buffers, and nothing while frames run through it.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "../../relay/allocation/count_allocations.h"
#include "../reference.h"
#include "feature_extractor/feature_extractor.h"

namespace sonivo::test {
namespace {

TEST(FeatureMemory, IsCounted) {
  const std::uint64_t before = allocations();
  const std::vector<int> something(3);
  EXPECT_EQ(allocations() - before, 1u);
}

void expect_no_allocation(const FeatureOptions& options, std::shared_ptr<Input<short>> input) {
  FrameData frames(options, std::move(input));
  FeatureExtractor extractor(options);
  std::vector<float> features;
  for (int frame = 0; frame < 20; ++frame) {
    ASSERT_TRUE(frames.has_next());
    extractor.compute(frames, features);
  }
  const std::uint64_t before = allocations();
  std::size_t count = 0;
  for (; frames.has_next(); ++count) extractor.compute(frames, features);
  EXPECT_EQ(allocations() - before, 0u);
  EXPECT_GT(count, 50u);
}

TEST(FeatureMemory, IsNotAllocatedWhileFramesRun) {
  const auto samples = reference::noise(32000);
  FeatureOptions options;  // with dither
  options.use_energy = true;
  for (const bool power_of_two : {true, false}) {
    options.round_to_power_of_two = power_of_two;
    for (const float shift : {10.0f, 25.0f, 27.5f}) {
      options.frame_shift = shift;
      expect_no_allocation(options, std::make_shared<reference::CutInput>(samples));
      expect_no_allocation(options, std::make_shared<reference::GroupInput>(samples, 160));
    }
  }
}

}  // namespace
}  // namespace sonivo::test
