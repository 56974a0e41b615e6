// What the FIFOs allocate: their rings, and nothing while samples move; and what is left where memory ends.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "../../relay/allocation/count_allocations.h"
#include "enhance/block_dump.h"
#include "enhance/fifo_input.h"
#include "enhance/fifo_output.h"
#include "enhance/log.h"
#include "support/temporary_folder.h"

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

TEST(FifoMemory, IsNotAllocatedForMessagesThatNobodyWants) {
  FifoInput in;
  ASSERT_TRUE(in.BuffInit(3360, 48000, 5));
  const std::vector<float> block(480);
  static int messages;
  messages = 0;
  set_log_hook([](LogLevel, const char*) { ++messages; }, LogLevel::info2);
  const std::uint64_t before = allocations();
  in.PushData(block.data(), 480);
  EXPECT_EQ(allocations() - before, 0u);
  EXPECT_EQ(messages, 0);
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

/// Where the reader's memory ends, no sample is lost, and neither is the place in the chunk.
TEST(MissingReaderMemory, TakesNothingOutOfAnInput) {
  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(4800, 48000, 5));
  const std::vector<float> block(2400, 0.25f);
  ASSERT_EQ(fifo.PushData(block.data(), 2400), 2400u);
  std::vector<short> expected;
  fifo.data(expected, 800, false);
  fifo.BuffClear();
  ASSERT_EQ(fifo.PushData(block.data(), 2400), 2400u);

  int failures = 0;
  std::vector<short> out;
  for (std::uint64_t nth = 3; nth >= 1; --nth) {
    std::vector<short> lost;
    fail_allocation(nth);
    try {
      fifo.data(lost, 800, false);
    } catch (const std::bad_alloc&) {
      ++failures;
      EXPECT_TRUE(lost.empty());
      EXPECT_EQ(fifo.GetDataLength(), 2400u) << nth;
    }
    allocation_failed();
    if (!lost.empty()) {
      EXPECT_EQ(lost, expected);
      fifo.BuffClear();
      ASSERT_EQ(fifo.PushData(block.data(), 2400), 2400u);
    }
  }
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(fifo.data(out, 800, false), 800);
  EXPECT_EQ(out, expected);
}

TEST(MissingReaderMemory, LeavesTheEndOfAnInputAsItIs) {
  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(4800, 48000, 5));
  fifo.End();
  std::vector<short> out;
  fail_allocation(1);
  EXPECT_THROW(fifo.data(out, 800, false), std::bad_alloc);
  EXPECT_EQ(fifo.data(out, 800, false), 800) << "the silence of an input that never ran";
  EXPECT_EQ(fifo.data(out, 800, false), 0);
  EXPECT_EQ(out, std::vector<short>(800, 0));
}

TEST(MissingDumpMemory, LeavesTheDumpOff) {
  const TemporaryFolder folder;
  ASSERT_EQ(::setenv("AI_SPEECH_ENHANCE_DUMP_DIR", folder.path().c_str(), 1), 0);
  BlockDump dump;
  fail_allocation(1);
  EXPECT_EQ(dump.open(48000, 2, 480, 0, 0, 1), 1);
  EXPECT_TRUE(allocation_failed());
  EXPECT_FALSE(dump.is_on());
  EXPECT_TRUE(folder.entries().empty());
  EXPECT_EQ(dump.open(48000, 2, 480, 0, 0, 1), 0);
  ::unsetenv("AI_SPEECH_ENHANCE_DUMP_DIR");
}

}  // namespace
}  // namespace sonivo::test
