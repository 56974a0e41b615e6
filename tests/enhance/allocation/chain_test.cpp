// What Execute allocates: nothing, whatever becomes of the block.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include "../../classic/chain/chain_params.h"
#include "../../relay/allocation/count_allocations.h"
#include "../chain/chain_models.h"
#include "classic/param_blobs.h"
#include "enhance/ai_speech_enhance.h"
#include "enhance/log.h"
#include "enhance/result.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

TEST(ThreadsOwnMemory, IsCountedApart) {
  const std::uint64_t all = allocations(), own = own_allocations();
  std::thread([] { const std::vector<int> something(3); }).join();
  const std::uint64_t for_the_thread = own_allocations() - own;
  EXPECT_GT(allocations() - all, for_the_thread);
  const std::vector<int> something(3);
  EXPECT_EQ(own_allocations() - own, for_the_thread + 1);
}

/// The whole chain, all stages on, two channels, with a model.
struct ChainMemory : testing::Test {
  static constexpr std::size_t kBlock = 480;

  TemporaryFolder folder;
  CAISpeechEnhance chain;
  std::vector<float> block = std::vector<float>(2 * kBlock);
  std::size_t phase = 0;

  void SetUp() override {
    const auto param = classic::test::beam_forming_params();
    const std::string model = folder.write("double.bin", gain_model(2.0f));
    ASSERT_EQ(chain.Open(reinterpret_cast<const std::uint16_t*>(&param), model.c_str(), 48000.0f, 2, kBlock, 20, 20),
              0);
    ASSERT_EQ(chain.Run(), 0);
  }

  /// What so many blocks take; whether the enhancement thread gets its turn between them.
  std::uint64_t allocations_of(int blocks, int expected, bool in_time = true) {
    std::uint64_t taken = 0;
    for (int n = 0; n < blocks; ++n) {
      for (float& sample : block) sample = 0.2f * static_cast<float>(std::sin(0.01 * static_cast<double>(++phase)));
      const std::uint64_t before = own_allocations();
      const int code = chain.Execute(block.data());
      taken += own_allocations() - before;
      EXPECT_EQ(code, expected);
      while (in_time && !chain.IsEnhancementIdle()) std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    return taken;
  }
};

TEST_F(ChainMemory, IsNotAllocatedForBlocksThroughTheModel) {
  ASSERT_EQ(chain.SetAISpeechEnhanceActive(1), 0);
  allocations_of(20, 0);
  EXPECT_EQ(allocations_of(100, 0), 0u);
}

TEST_F(ChainMemory, IsNotAllocatedForBlocksPastTheModel) {
  allocations_of(20, 0);
  EXPECT_EQ(allocations_of(100, 0), 0u);
}

TEST_F(ChainMemory, IsNotAllocatedWithoutAModel) {
  ASSERT_EQ(chain.SetAISpeechEnhanceActive(1), 0);
  allocations_of(20, 0);
  const std::string broken = folder.write("broken.bin", "none");
  ASSERT_EQ(chain.SetAIModel(broken.c_str()), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(allocations_of(100, WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN, false), 0u);
}

TEST_F(ChainMemory, ThatEndsInRunLeavesItStopped) {
  ASSERT_EQ(chain.Stop(), 0);
  const std::uint64_t before = own_allocations();
  ASSERT_EQ(chain.Run(), 0);
  const std::uint64_t of_run = own_allocations() - before;
  ASSERT_EQ(chain.Stop(), 0);
  ASSERT_GT(of_run, 1u);
  for (std::uint64_t nth = 1; nth <= of_run; ++nth) {
    fail_allocation(nth);
    EXPECT_EQ(chain.Run(), ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY) << nth;
    EXPECT_TRUE(allocation_failed()) << nth;
    EXPECT_EQ(chain.Stop(), ERROR_AI_SPEECH_ENHANCE_STOPPED) << nth;
  }
  EXPECT_EQ(chain.Run(), 0);
}

std::vector<std::string> open_errors;

/// One after the other, the chains in front of the model fail to open.
TEST_F(ChainMemory, ThatEndsInOpenLeavesItClosed) {
  ASSERT_EQ(chain.Stop(), 0);
  ASSERT_EQ(chain.Close(), 0);
  const auto param = classic::test::beam_forming_params();
  const std::string model = folder.write("double.bin", gain_model(2.0f));
  const auto open = [&] {
    return chain.Open(reinterpret_cast<const std::uint16_t*>(&param), model.c_str(), 48000.0f, 2, kBlock, 20, 20);
  };
  open_errors.clear();
  set_log_hook(
      [](LogLevel level, const char* text) {
        if (level == LogLevel::error && (open_errors.empty() || open_errors.back() != text)) {
          open_errors.emplace_back(text);
        }
      },
      LogLevel::error);
  int code = ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY;
  for (std::uint64_t nth = 1; code == ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY; ++nth) {
    fail_allocation(nth);
    code = open();
    EXPECT_TRUE(allocation_failed()) << nth;
    EXPECT_EQ(chain.Close(), ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED) << nth;
    std::erase(open_errors, "Close: return ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED\n");
  }
  set_log_hook(nullptr);
  EXPECT_EQ(code, ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL) << "the model comes behind them";
  ASSERT_GE(open_errors.size(), 3u);
  EXPECT_EQ(open_errors[0], "Open: bf.Open error, ret (1)\n");
  EXPECT_EQ(open_errors[1], "Open: bf_model.Open error, ret (1)\n");
  EXPECT_EQ(open_errors[2], "Open:nr_model.Open error, ret (1)\n");
  EXPECT_EQ(open(), 0);
}

}  // namespace
}  // namespace sonivo::test
