// What the FIFOs allocate: their rings, and nothing while samples move.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "../../relay/allocation/count_allocations.h"
#include "enhance/fifo_input.h"
#include "enhance/fifo_output.h"
#include "enhance/log.h"

namespace sonivo::test {
namespace {

TEST(FifoMemory, IsCounted) {
  const std::uint64_t before = allocations();
  const std::vector<int> something(3);
  EXPECT_EQ(allocations() - before, 1u);
}

TEST(FifoMemory, IsNotAllocatedWhileSamplesMove) {
  FifoInput in;
  FifoOutput out;
  ASSERT_TRUE(in.BuffInit(3360, 48000, 5));
  ASSERT_TRUE(out.BuffInit(3360, 2400, 48000));
  std::vector<short> chunk;
  chunk.reserve(800);
  std::vector<float> block(480, 0.1f);
  const std::uint64_t before = allocations();
  for (int round = 0; round < 20; ++round) {
    for (int n = 0; n < 5; ++n) {
      ASSERT_EQ(in.PushData(block.data(), 480), 480u);
      ASSERT_EQ(out.PopData(block.data(), 480), 480u);
    }
    chunk.clear();
    ASSERT_EQ(in.data(chunk, 800, false), 800);
    ASSERT_EQ(out.PushData(chunk.data(), 800), 800u);
    if (round % 7 == 0) {
      in.BuffClear();
      out.BuffClear();
    }
  }
  EXPECT_EQ(allocations() - before, 0u);
}

/// The log's hook is the only thing that may.
TEST(FifoMemory, IsNotAllocatedForMessages) {
  FifoInput in;
  ASSERT_TRUE(in.BuffInit(3360, 48000, 5));
  const std::vector<float> block(480);
  set_log_hook([](LogLevel, const char*) {});
  const std::uint64_t before = allocations();
  in.PushData(block.data(), 480);
  EXPECT_EQ(allocations() - before, 0u);
  set_log_hook(nullptr);
}

std::string last_error;

class MissingFifoMemory : public testing::Test {
 protected:
  void SetUp() override {
    last_error.reserve(512);
    last_error.clear();
    set_log_hook([](LogLevel level, const char* text) {
      if (level == LogLevel::error) last_error = text;
    });
  }
  void TearDown() override { set_log_hook(nullptr); }
};

TEST_F(MissingFifoMemory, LeavesAnInputWithoutStorage) {
  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(3360, 48000, 5));
  fail_allocation(1);
  EXPECT_FALSE(fifo.BuffInit(3360, 48000, 5));
  EXPECT_TRUE(allocation_failed());
  EXPECT_EQ(last_error, "FifoInput::BuffInit: ring_buff=NULL, return (false)\n");
  const float x = 1;
  EXPECT_EQ(fifo.PushData(&x, 1), 0u);
  EXPECT_TRUE(fifo.BuffInit(3360, 48000, 5));
  EXPECT_EQ(fifo.PushData(&x, 1), 1u);
}

TEST_F(MissingFifoMemory, LeavesAnOutputWithoutStorage) {
  FifoOutput fifo;
  fail_allocation(1);
  EXPECT_FALSE(fifo.BuffInit(3360, 2400, 48000));
  EXPECT_TRUE(allocation_failed());
  EXPECT_EQ(last_error, "FifoOutput::BuffInit: ring_buff=NULL, return (false)\n");
  float x = 1;
  EXPECT_EQ(fifo.PopData(&x, 1), 0u);
  EXPECT_TRUE(fifo.BuffInit(3360, 2400, 48000));
  EXPECT_EQ(fifo.PopData(&x, 1), 1u);
}

}  // namespace
}  // namespace sonivo::test
