// What the classic chains allocate: nothing while they execute, a bounded amount when they open, and what happens when
// there is no memory.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "../../classic/params/built_in_text.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/built_in_params.h"
#include "classic/key_cancel.h"
#include "classic/key_cancel_channel.h"
#include "classic/par_channel.h"
#include "classic/par_reader.h"
#include "count_allocations.h"

namespace sonivo::test {
namespace {

constexpr int kMemoryEmpty = 1;
constexpr int kInvalidArg = 6;

/// Microphones that one channel of a chain hears.
std::size_t microphones(const CKeyCancel&) { return 1; }
std::size_t microphones(const CBeamFormingKeyCancel&) { return 2; }

classic::KeyCancelParam params_of(const CKeyCancel&) { return classic::NrModelParam(); }

/// Beams that are the microphones themselves.
classic::BeamFormingKeyCancelParam params_of(const CBeamFormingKeyCancel&) {
  const auto& single = classic::NrModelParam();
  classic::BeamFormingKeyCancelParam param{};
  param.head = single.head;
  param.fbf = {.inputs = 2, .outputs = 2, .hop = 192, .bins = 257, .fft = 512, .partitions = 2};
  param.noise = single.noise;
  param.ns_nr.sources = 2;
  param.ns_nr.bins = single.ns_nr.bins;
  param.ns_nr.fine_nbin = single.ns_nr.fine_nbin;
  param.ns_nr.coarse_nbin = single.ns_nr.coarse_nbin;
  param.ns_nr.dly_frame = single.ns_nr.dly_frame;
  param.ns_nr.common = single.ns_nr.common;
  param.ns_nr.nbin_avg_g_H = single.ns_nr.fine_nbin;
  param.pulse = single.pulse;
  for (int beam = 0; beam < classic::kBeams; ++beam) {
    for (auto& bin : param.filter[beam][beam][1]) bin = {1.0f, 0.0f};
  }
  param.version_major = 1;
  return param;
}

template <class Chain>
class Memory : public testing::Test {
 protected:
  int open(std::uint16_t channels) { return chain_.Open(&params_, 48000.0f, channels, 480); }

  Chain chain_;
  decltype(params_of(chain_)) params_ = params_of(chain_);
};
using Chains = testing::Types<CKeyCancel, CBeamFormingKeyCancel>;
TYPED_TEST_SUITE(Memory, Chains);

TYPED_TEST(Memory, IsNotAllocatedWhileTheChainExecutes) {
  ASSERT_EQ(this->open(2), 0);
  std::vector<float> block(960);
  std::uint32_t s = 1;
  for (float& x : block) x = static_cast<float>((s = s * 1664525u + 1013904223u) >> 8) / 16777216.0f - 0.5f;
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

TYPED_TEST(Memory, ThatIsMissingForNewParametersLeavesTheChainOpen) {
  ASSERT_EQ(this->open(2), 0);
  std::vector<float> block(960, 0.25f);
  for (std::uint64_t nth = 1;; ++nth) {
    fail_allocation(nth);
    const int status = this->chain_.SetParam(&this->params_);
    if (!allocation_failed()) {
      EXPECT_EQ(status, 0);
      break;
    }
    EXPECT_EQ(status, kMemoryEmpty) << "allocation " << nth;
    EXPECT_EQ(this->chain_.Execute(block.data()), 0) << "allocation " << nth;
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
  std::string folder = (std::filesystem::temp_directory_path() / "sonivo-memory-XXXXXX").string();
  ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  const std::string path = folder + "/tuning.par";
  std::ofstream(path) << classic::test::built_in_text();
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
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace sonivo::test
