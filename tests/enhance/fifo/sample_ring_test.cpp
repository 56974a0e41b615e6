#include "enhance/sample_ring.h"

#include <gtest/gtest.h>

#include <vector>

namespace sonivo::test {
namespace {

TEST(SampleRing, GivesSamplesBackInOrderAcrossItsEnd) {
  SampleRing ring;
  ASSERT_TRUE(ring.allocate(7));
  float next_in = 0, next_out = 0;
  for (std::uint32_t size : {3u, 4u, 1u, 7u, 2u, 6u, 5u, 7u, 7u, 0u, 1u}) {
    std::vector<float> block(size);
    for (float& x : block) x = next_in++;
    ring.write(block.data(), size);
    std::vector<float> back(size, -1.0f);
    ring.read(back.data(), size);
    for (const float x : back) EXPECT_EQ(x, next_out++);
  }
}

TEST(SampleRing, HoldsZerosWhenNewAndWhenCleared) {
  SampleRing ring;
  ASSERT_TRUE(ring.allocate(5));
  std::vector<float> block(5, 1.0f);
  ring.read(block.data(), 5);
  EXPECT_EQ(block, std::vector<float>(5, 0.0f));
  const std::vector<float> ones(5, 1.0f);
  ring.write(ones.data(), 5);
  ring.read(block.data(), 2);
  ring.clear();
  ring.read(block.data(), 5);
  EXPECT_EQ(block, std::vector<float>(5, 0.0f));
  const std::vector<float> counted{1, 2, 3};
  ring.clear();
  ring.write(counted.data(), 3);
  ring.read(block.data(), 3);
  EXPECT_EQ(block, (std::vector<float>{1, 2, 3, 0, 0}));
}

TEST(SampleRing, HasNoStorageUntilItIsAllocatedAndOnceItIsReleased) {
  SampleRing ring;
  EXPECT_EQ(ring.storage(), nullptr);
  ring.clear();
  ASSERT_TRUE(ring.allocate(3));
  EXPECT_NE(ring.storage(), nullptr);
  ring.release();
  EXPECT_EQ(ring.storage(), nullptr);
}

}  // namespace
}  // namespace sonivo::test
