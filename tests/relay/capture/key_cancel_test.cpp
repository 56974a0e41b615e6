// The first chain: opening, blocks, its setting.

#include "classic_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KeyCancel : public ClassicBench, public ::testing::Test {
 protected:
  KeyCancel() : ClassicBench(Notebook::key_cancel) {}
};

TEST_F(KeyCancel, IsOpenedWithTheFormatAndTheStoredFlags) {
  bench_.store_key_cancel_parameters(1, 0);
  stream(1);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("GetParamSize", "Open(48000, 2, 480)", "SetDataLength(480)", "SetSamplingRate(48000)",
                          "SetChannel(2)", "SetKeyReductionActive(1)", "SetNoiseReductionActive(0)"));
}

TEST_F(KeyCancel, CountsItsFramesByTheRateOfTheStream) {
  start();
  bench_.record(pcm_format(44100, 24, 1), microphone(24, 1));
  bench_.machine.run_for(1);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("GetParamSize", "Open(44100, 1, 441)", "SetDataLength(441)", "SetSamplingRate(44100)",
                          "SetChannel(1)", "SetKeyReductionActive(1)", "SetNoiseReductionActive(1)"));
}

TEST_F(KeyCancel, TakesAnyFlagByteButZeroForOn) {
  bench_.store_key_cancel_parameters(0x80, 0);
  stream(1);
  EXPECT_EQ(chain_.count("SetKeyReductionActive(1)"), 1u);
  EXPECT_EQ(chain_.count("SetNoiseReductionActive(0)"), 1u);
  bench_.store_key_cancel_parameters(0, 0x80);
  bench_.machine.run_for(1);  // the change restarts the stream
  EXPECT_EQ(chain_.count("SetKeyReductionActive(0)"), 1u);
  EXPECT_EQ(chain_.count("SetNoiseReductionActive(1)"), 1u);
}

TEST_F(KeyCancel, TakesItsFlagsFromTheStoreAndNotFromTheState) {
  bench_.relay->ChangeKeyCancelState(false);
  stream(1);
  EXPECT_EQ(chain_.count("SetKeyReductionActive(1)"), 1u);
  EXPECT_EQ(chain_.count("SetNoiseReductionActive(1)"), 1u);
}

TEST_F(KeyCancel, IsOpenBeforeTheClientStarts) {
  std::vector<std::string> calls;
  bench_.machine.script().before(Step::client_start, 1, [&] { calls = chain_.calls(); });
  stream(1);
  ASSERT_THAT(calls, ::testing::Not(IsEmpty()));
  EXPECT_EQ(calls.back(), "SetNoiseReductionActive(1)");
}

TEST_F(KeyCancel, IsAskedForItsLengthAndExecutedInEachBlock) {
  stream(1);
  chain_.clear();
  bench_.machine.run_for(35);
  EXPECT_THAT(chain_.calls(),
              ElementsAre("GetDataLength", "Execute", "GetDataLength", "Execute", "GetDataLength", "Execute"));
}

TEST_F(KeyCancel, IsntCalledWhenItsStateChanges) {
  stream(1);
  chain_.clear();
  bench_.relay->UpdateKeyCancelState(false);
  bench_.machine.run_for(15);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetDataLength", "Execute"));
}

}  // namespace
}  // namespace sonivo::test
