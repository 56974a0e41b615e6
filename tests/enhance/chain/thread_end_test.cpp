// The end of the process by a model that fails on the enhancement thread.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "chain_bench.h"

namespace sonivo::test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::StartsWith;

struct FailingModel : ChainBench {
  std::string quiet = folder.write("quiet.bin", quiet_rooms_model());

  void play_loud() {
    for (int n = 0; n < 10; ++n) {
      Block block(kBlock, n % 2 == 0 ? 0.5f : -0.5f);
      play(block);
    }
  }
};
using FailingModelDeathTest = FailingModel;

MATCHER(IsOneLine, "") { return std::count(arg.begin(), arg.end(), '\n') == 1; }

TEST_F(FailingModel, ThatCantBeKnownToFailIsOpened) {
  start(quiet);
  for (int n = 0; n < 30; ++n) EXPECT_EQ(play_silence(), 0);
  EXPECT_EQ(chain->Stop(), 0);
}

TEST_F(FailingModelDeathTest, EndsTheProcessWithALineThatTellsWhy) {
  EXPECT_EXIT(
      {
        start(quiet);
        for (int n = 0; n < 10; ++n) play_silence();
        play_loud();
      },
      ExitedWithCode(1),
      AllOf(StartsWith("error: speech enhancement: Index "), HasSubstr(" is not in the table of layer e"),
            EndsWith("\n"), IsOneLine()));
}

TEST_F(FailingModelDeathTest, EndsItAfterAChangeToo) {
  EXPECT_EXIT(
      {
        start();
        play_loud();
        if (chain->SetAIModel(quiet.c_str()) == 0) play_loud();
      },
      ExitedWithCode(1), AllOf(StartsWith("error: speech enhancement: Index "), IsOneLine()));
}

TEST_F(FailingModelDeathTest, IsInTheLogAtTheEnd) {
  EXPECT_EXIT(
      {
        start(quiet);
        set_log_hook([](LogLevel level, const char* text) {
          if (level == LogLevel::error) std::fprintf(stderr, "log: %s", text);
        });
        play_loud();
      },
      ExitedWithCode(1), StartsWith("log: speech enhancement: Index "));
}

}  // namespace
}  // namespace sonivo::test
