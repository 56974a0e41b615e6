// What the classic chains allocate: nothing while they execute, a bounded amount when they open, and what happens when
// there is no memory.

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "../../classic/chain/chain_params.h"
#include "../../classic/chain/chain_signals.h"
#include "../../classic/params/built_in_text.h"
#include "../../support/temporary_folder.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "classic/key_cancel_channel.h"
#include "classic/par_channel.h"
#include "classic/par_reader.h"
#include "classic/param_check.h"
#include "count_allocations.h"

namespace sonivo::test {
namespace {

using classic::test::channel_of;
using classic::test::noise;
using classic::test::through;

constexpr int kMemoryEmpty = 1;
constexpr int kInvalidArg = 6;

/// Microphones that one channel of a chain hears.
std::size_t microphones(const CKeyCancel&) { return 1; }
std::size_t microphones(const CBeamFormingKeyCancel&) { return 2; }

classic::KeyCancelParam params_of(const CKeyCancel&) { return classic::test::key_cancel_params(); }
classic::BeamFormingKeyCancelParam params_of(const CBeamFormingKeyCancel&) {
  return classic::test::beam_forming_params();
}

template <class Chain>
class Memory : public testing::Test {
 protected:
  int open(std::uint16_t channels, std::uint16_t length = 480) {
    return chain_.Open(&params_, 48000.0f, channels, length);
  }

  Chain chain_;
  decltype(params_of(chain_)) params_ = params_of(chain_);
};
using Chains = testing::Types<CKeyCancel, CBeamFormingKeyCancel>;
TYPED_TEST_SUITE(Memory, Chains);

TYPED_TEST(Memory, IsNotAllocatedWhileTheChainExecutes) {
  ASSERT_EQ(this->open(2), 0);
  auto block = noise(960);
  const std::uint64_t before = allocations();
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(this->chain_.Execute(block.data()), 0);
    this->chain_.SetKeyReductionActive(i % 7 != 0);
    this->chain_.SetNoiseReductionActive(i % 5 != 0);
  }
  EXPECT_EQ(allocations() - before, 0u);
}

TYPED_TEST(Memory, OfAnOpenChainIsBounded) {
  ASSERT_EQ(this->open(4), 0);  // tables that all chains share exist from here on
  ASSERT_EQ(this->chain_.Close(), 0);
  const std::uint64_t before = allocated_bytes();
  ASSERT_EQ(this->open(4), 0);
  const std::uint64_t per_channel = (allocated_bytes() - before - sizeof this->params_) / 4;
  EXPECT_LE(per_channel, microphones(this->chain_) * 64 * 1024);
  this->RecordProperty("bytes_per_channel", static_cast<int>(per_channel));
}

TYPED_TEST(Memory, ThatIsMissingWhenItOpensLeavesTheChainClosed) {
  ASSERT_EQ(this->open(2), 0);
  ASSERT_EQ(this->chain_.Close(), 0);
  int failures = 0;
  for (std::uint64_t nth = 1;; ++nth) {
    fail_allocation(nth);
    const int status = this->open(2);
    if (!allocation_failed()) {
      EXPECT_EQ(status, 0);
      break;
    }
    ++failures;
    EXPECT_EQ(status, kMemoryEmpty) << "allocation " << nth;
    EXPECT_EQ(this->chain_.Close(), kInvalidArg) << "allocation " << nth;
  }
  EXPECT_GE(failures, 6) << "at least the blob, the engine, the queues and four channels";
}

TYPED_TEST(Memory, ThatIsMissingForABlockLengthClosesTheChain) {
  ASSERT_EQ(this->open(2), 0);
  fail_allocation(1);
  EXPECT_EQ(this->chain_.SetDataLength(1000), kMemoryEmpty);
  EXPECT_TRUE(allocation_failed());
  EXPECT_EQ(this->chain_.Close(), kInvalidArg);
}

/// Each channel goes on as it was or sounds like a new one: the last ones first, each with as many allocations, behind
/// those of the blob and of the look at its numbers.
TYPED_TEST(Memory, ThatIsMissingForNewParametersLeavesEachChannelWithTheOldOnesOrTheNew) {
  auto other = this->params_;
  other.paramID = static_cast<std::uint16_t>(this->params_.paramID + 1);
  other.ns_nr.common.vol *= 0.5f;
  const auto before = noise(4 * 192 * 20, 1);
  const auto after = noise(4 * 192 * 20, 2);
  ASSERT_EQ(this->open(4, 192), 0);
  through(this->chain_, before);
  const auto as_it_was = through(this->chain_, after);
  TypeParam fresh;
  ASSERT_EQ(fresh.Open(&other, 48000.0f, 4, 192), 0);
  const auto as_new = through(fresh, after);

  std::uint64_t start = allocations();
  ASSERT_TRUE(classic::usable(other));
  const std::uint64_t of_blob = allocations() - start + 1;
  start = allocations();
  ASSERT_EQ(this->chain_.SetParam(&other), 0);
  const std::uint64_t per_channel = (allocations() - start - of_blob) / 4;
  ASSERT_GE(per_channel, 1u);
  ASSERT_EQ(allocations() - start, of_blob + 4 * per_channel);

  for (std::uint64_t nth = 1; nth <= of_blob + 4 * per_channel + 1; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth));
    ASSERT_EQ(this->open(4, 192), 0);
    through(this->chain_, before);
    fail_allocation(nth);
    const int status = this->chain_.SetParam(&other);
    const bool failed = allocation_failed();
    EXPECT_EQ(status, failed ? kMemoryEmpty : 0);
    EXPECT_EQ(failed, nth <= of_blob + 4 * per_channel);
    std::uint16_t id = 0;
    EXPECT_EQ(this->chain_.GetParamID(&id), 0);
    EXPECT_EQ(id, failed ? this->params_.paramID : other.paramID);
    const std::uint64_t changed = nth <= of_blob ? 0 : (nth - of_blob - 1) / per_channel;
    const auto out = through(this->chain_, after);
    for (std::size_t c = 0; c < 4; ++c) {
      const auto& expected = c + changed >= 4 ? as_new : as_it_was;
      EXPECT_EQ(channel_of(out, 4, c), channel_of(expected, 4, c)) << "channel " << c;
    }
  }
}

/// What is missing for the first allocation is the record itself; the others here come before the first key is found.
TEST(MemoryOfAParameterSet, ThatIsMissingLeavesNone) {
  const std::string no_file = "a name that is longer than what a string holds in itself.par";
  for (std::uint64_t nth = 1; nth <= 40; ++nth) {
    std::ostringstream messages;
    fail_allocation(nth);
    const auto param = classic::MakeParams<classic::KeyCancelParam>(no_file, messages);
    ASSERT_TRUE(allocation_failed());
    EXPECT_EQ(param, nullptr) << nth;
    if (nth == 1) {
      EXPECT_EQ(messages.str(), "memory empty\n");
    }
  }
  std::ostringstream messages;
  fail_allocation(1);
  EXPECT_EQ(classic::MakeParams<classic::BeamFormingKeyCancelParam>(no_file, messages), nullptr);
  EXPECT_TRUE(allocation_failed());
  EXPECT_EQ(messages.str(), "memory empty\n");
}

/// Every allocation behind the reading of the file fails once: the channel and its stages.
TEST(MemoryOfAChannelFromAFile, ThatIsMissingLeavesNone) {
  const TemporaryFolder folder;
  const std::string path = folder.write("tuning.par", classic::test::built_in_text());
  std::ostringstream nothing;
  ASSERT_NE(classic::MakeChannel<classic::KeyCancelChannel>(path, nothing), nullptr) << nothing.str();
  const std::uint64_t start = allocations();
  ASSERT_NE(classic::MakeParams<classic::KeyCancelParam>(path, nothing), nullptr);
  const std::uint64_t reading = allocations() - start;

  int failures = 0;
  for (std::uint64_t nth = reading + 1;; ++nth) {
    std::ostringstream messages;
    fail_allocation(nth);
    const auto channel = classic::MakeChannel<classic::KeyCancelChannel>(path, messages);
    if (!allocation_failed()) {
      EXPECT_NE(channel, nullptr);
      break;
    }
    ++failures;
    EXPECT_EQ(channel, nullptr) << "allocation " << nth;
    EXPECT_EQ(messages.str(), "memory empty\n") << "allocation " << nth;
  }
  EXPECT_GE(failures, 3) << "at least the blob's owner, the channel and its stages";
}

}  // namespace
}  // namespace sonivo::test
