// Setters from control threads while another thread executes.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "chain_params.h"
#include "chain_signals.h"
#include "classic/beam_forming_key_cancel.h"

namespace sonivo {
namespace {

TEST(BeamFormingKeyCancel, TakesSettingsWhileItExecutes) {
  const auto param = classic::test::beam_forming_params(1);
  const auto other = classic::test::beam_forming_params(2);
  CBeamFormingKeyCancel chain;
  ASSERT_EQ(chain.Open(&param, 48000.0f, 2, 480), 0);
  std::atomic<bool> done = false;
  std::thread control([&] {
    for (int i = 0; i < 40; ++i) {
      const auto flag = static_cast<std::uint16_t>(i & 1);
      EXPECT_EQ(chain.SetKeyReductionActive(flag), 0);
      EXPECT_EQ(chain.SetNoiseReductionActive(flag), 0);
      EXPECT_EQ(chain.SetBeamFormingActive(flag), 0);
      EXPECT_EQ(chain.SetParam(flag != 0 ? &param : &other), 0);
      std::uint16_t id = 0;
      EXPECT_EQ(chain.GetParamID(&id), 0);
      EXPECT_EQ(id, flag != 0 ? 1 : 2);
      EXPECT_EQ(chain.SetChannel(static_cast<std::uint16_t>(1 + (i & 1))), 0);
    }
    done = true;
  });
  auto block = classic::test::noise(2 * 480);
  while (!done) {
    auto copy = block;
    EXPECT_EQ(chain.Execute(copy.data()), 0);
    for (const float sample : copy) ASSERT_TRUE(std::isfinite(sample));
  }
  control.join();
}

TEST(BeamFormingKeyCancel, ClosesWhileAnotherThreadExecutes) {
  const auto param = classic::test::beam_forming_params();
  CBeamFormingKeyCancel chain;
  ASSERT_EQ(chain.Open(&param, 48000.0f, 2, 480), 0);
  std::thread audio([&] {
    auto block = classic::test::noise(2 * 480);
    while (chain.Execute(block.data()) == 0) {
    }
  });
  std::this_thread::yield();
  EXPECT_EQ(chain.Close(), 0);
  audio.join();
}

}  // namespace
}  // namespace sonivo
