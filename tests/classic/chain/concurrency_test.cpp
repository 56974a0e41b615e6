// Setters from control threads while another thread executes.

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <latch>
#include <thread>
#include <type_traits>
#include <vector>

#include "chain_params.h"
#include "chain_signals.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"

namespace sonivo {
namespace {

auto params_of(const CKeyCancel&, std::uint16_t id) { return classic::test::key_cancel_params(id); }
auto params_of(const CBeamFormingKeyCancel&, std::uint16_t id) { return classic::test::beam_forming_params(id); }

/// A thread that executes block after block of noise until it is told to stop or is refused, but not for ever: a lock
/// promises no turn to those who wait for it.
template <class Chain>
class Audio {
 public:
  /// Returns once a block was executed.
  explicit Audio(Chain& chain) : thread_([this, &chain] { run(chain); }) { first_.wait(); }
  ~Audio() { stop(); }

  void stop() {
    stopped_ = true;
    if (thread_.joinable()) thread_.join();
  }

  // After stop().
  int executed() const { return executed_; }
  int status() const { return status_; }  ///< of the latest Execute

 private:
  static constexpr int kMostBlocks = 5000;

  void run(Chain& chain) {
    const auto noise = classic::test::noise(2 * 480);
    while (executed_ < kMostBlocks && !stopped_) {
      auto block = noise;
      status_ = chain.Execute(block.data());
      if (status_ != 0) break;
      for (const float sample : block) EXPECT_TRUE(std::isfinite(sample));
      if (++executed_ == 1) first_.count_down();
      std::this_thread::yield();
    }
    if (executed_ == 0) first_.count_down();
  }

  std::latch first_{1};
  std::atomic<bool> stopped_ = false;
  int executed_ = 0;
  int status_ = -1;
  std::thread thread_;
};

template <class Chain>
class Concurrently : public testing::Test {
 protected:
  Chain chain_;
};
using Chains = testing::Types<CKeyCancel, CBeamFormingKeyCancel>;
TYPED_TEST_SUITE(Concurrently, Chains);

TYPED_TEST(Concurrently, TakesSettingsWhileItExecutes) {
  auto& chain = this->chain_;
  const auto param = params_of(chain, 1);
  const auto other = params_of(chain, 2);
  ASSERT_EQ(chain.Open(&param, 48000.0f, 2, 480), 0);
  Audio audio(chain);
  for (int i = 0; i < 40; ++i) {
    const auto flag = static_cast<std::uint16_t>(i & 1);
    EXPECT_EQ(chain.SetKeyReductionActive(flag), 0);
    EXPECT_EQ(chain.SetNoiseReductionActive(flag), 0);
    if constexpr (std::is_same_v<TypeParam, CBeamFormingKeyCancel>) {
      EXPECT_EQ(chain.SetBeamFormingActive(flag), 0);
    }
    EXPECT_EQ(chain.SetParam(flag != 0 ? &param : &other), 0);
    std::uint16_t id = 0;
    EXPECT_EQ(chain.GetParamID(&id), 0);
    EXPECT_EQ(id, flag != 0 ? 1 : 2);
    EXPECT_EQ(chain.SetChannel(static_cast<std::uint16_t>(1 + (i & 1))), 0);
  }
  audio.stop();
  EXPECT_GT(audio.executed(), 0);
  EXPECT_EQ(audio.status(), 0);
}

TYPED_TEST(Concurrently, ClosesWhileItExecutes) {
  auto& chain = this->chain_;
  const auto param = params_of(chain, 1);
  ASSERT_EQ(chain.Open(&param, 48000.0f, 2, 480), 0);
  Audio audio(chain);
  EXPECT_EQ(chain.Close(), 0);
  audio.stop();
  EXPECT_GT(audio.executed(), 0);
  std::vector<float> block(2 * 480);
  EXPECT_EQ(chain.Execute(block.data()), 6);
}

}  // namespace
}  // namespace sonivo
