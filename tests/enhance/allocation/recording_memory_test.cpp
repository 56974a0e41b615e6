// Recordings without memory, and what becomes of blocks and recordings when the classic chain has lost its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "../../classic/chain/chain_params.h"
#include "../../relay/allocation/count_allocations.h"
#include "../chain/chain_models.h"
#include "enhance/ai_speech_enhance.h"
#include "enhance/log.h"
#include "enhance/result.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

char latest_error[512];  // of the log, kept without memory

struct RecordingMemory : testing::Test {
  static constexpr std::uint16_t kBlock = 480;

  TemporaryFolder folder;
  const std::string wav = folder / "rec.wav";
  const std::string other = folder / "other.wav";
  CAISpeechEnhance chain;

  void SetUp() override {
    set_log_hook([](LogLevel, const char* text) { std::snprintf(latest_error, sizeof latest_error, "%s", text); },
                 LogLevel::error);
    ASSERT_EQ(open(), 0);
  }
  void TearDown() override { set_log_hook(nullptr); }

  int open() {
    const auto param = classic::test::beam_forming_params();
    const std::string model = folder.write("passing.bin", gain_model(1.0f));
    return chain.Open(reinterpret_cast<const std::uint16_t*>(&param), model.c_str(), 48000.0f, 1, kBlock, 20, 20);
  }
};

TEST_F(RecordingMemory, ThatIsNotThereIsSaidAndNothingIsOpen) {
  std::uint64_t of_open = 0;
  for (int time = 0; time < 2; ++time) {  // the first one may set up more
    const std::uint64_t before = own_allocations();
    ASSERT_EQ(chain.OpenRecFile(wav.c_str()), 0);
    of_open = own_allocations() - before;
    ASSERT_EQ(chain.CloseRecFile(), 0);
  }
  int missing = 0;
  for (std::uint64_t nth = 1; nth <= of_open; ++nth) {
    latest_error[0] = '\0';
    fail_allocation(nth);
    const int code = chain.OpenRecFile(wav.c_str());
    EXPECT_TRUE(allocation_failed()) << nth;
    if (code == ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY) {
      ++missing;
      EXPECT_STREQ(latest_error, "OpenRecFile: wav_rec_buff=NULL, return ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY\n");
    } else if (code == 0) {  // the file does without a buffer
      EXPECT_EQ(chain.CloseRecFile(), 0) << nth;
    } else {
      EXPECT_EQ(code, ERROR_AI_SPEECH_ENHANCE_FILE_OPEN) << nth;
    }
    EXPECT_EQ(chain.CloseRecFile(), ERROR_AI_SPEECH_ENHANCE_NO_INIT) << nth;
  }
  EXPECT_EQ(missing, 1) << "the block";
  EXPECT_EQ(chain.OpenRecFile(wav.c_str()), 0);
}

/// It closes where blocks of another length find no memory.
struct LostClassicChain : RecordingMemory {
  void SetUp() override {
    RecordingMemory::SetUp();
    ASSERT_EQ(chain.Run(), 0);
    while (!chain.IsEnhancementIdle()) std::this_thread::sleep_for(std::chrono::microseconds(50));
    fail_allocation(1);
    ASSERT_EQ(chain.SetDataLength(kBlock / 2), ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY);
    ASSERT_TRUE(allocation_failed());
  }
};

TEST_F(LostClassicChain, IsToldWithItsCodeByEachBlock) {
  for (const std::uint16_t active : {std::uint16_t{0}, std::uint16_t{1}}) {
    ASSERT_EQ(chain.SetAISpeechEnhanceActive(active), 0);
    latest_error[0] = '\0';
    std::vector<float> block(kBlock, 0.25f);
    EXPECT_EQ(chain.Execute(block.data()), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    EXPECT_STREQ(latest_error, "Execute: bf.Execute error, ret (6)\n");
    EXPECT_EQ(block, std::vector<float>(kBlock, 0.25f)) << "untouched";
  }
  EXPECT_EQ(chain.Stop(), 0);
  EXPECT_EQ(chain.Close(), 0);
  EXPECT_EQ(open(), 0);
  EXPECT_EQ(chain.Run(), 0);
  std::vector<float> block(kBlock, 0.25f);
  EXPECT_EQ(chain.Execute(block.data()), 0) << "and it is there again";
}

TEST_F(LostClassicChain, LeavesTheFileOfANewRecordingOpen) {
  EXPECT_EQ(chain.OpenRecFile(wav.c_str()), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG) << "how many channels?";
  EXPECT_EQ(chain.OpenRecFile(other.c_str()), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  const std::vector<float> block(kBlock, 0.25f);
  EXPECT_EQ(chain.Rec(block.data()), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  EXPECT_EQ(chain.CloseRecFile(), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  ASSERT_EQ(chain.Stop(), 0);
  ASSERT_EQ(chain.Close(), 0);
  ASSERT_EQ(open(), 0);
  EXPECT_EQ(chain.Rec(block.data()), ERROR_AI_SPEECH_ENHANCE_NO_INIT) << "it has no block";
  EXPECT_EQ(chain.CloseRecFile(), 0);
  EXPECT_EQ(chain.OpenRecFile(other.c_str()), 0);
}

}  // namespace
}  // namespace sonivo::test
