// What an open chain holds on the heap.

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>

#include "chain_params.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"

namespace sonivo {
namespace {

using classic::test::beam_forming_params;
using classic::test::key_cancel_params;

std::size_t heap_bytes() {
  const auto heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

/// Of one of the four channels, which all are there however many are active; beside the parameters, which they share.
template <class Chain, class Param>
std::size_t bytes_per_channel(const Param& param) {
  Chain().Open(&param, 48000.0f, 1, 480);  // tables that all share
  const std::size_t before = heap_bytes();
  Chain chain;
  EXPECT_EQ(chain.Open(&param, 48000.0f, 1, 480), 0);
  return (heap_bytes() - before - sizeof(Param)) / 4;
}

TEST(KeyCancel, HoldsUpTo48KilobytesOfItsMicrophone) {
  if (heap_bytes() == 0) GTEST_SKIP() << "this build has an allocator of its own";
  const std::size_t bytes = bytes_per_channel<CKeyCancel>(key_cancel_params());
  EXPECT_GT(bytes, 1024u);
  EXPECT_LE(bytes, 48u * 1024u);
}

TEST(BeamFormingKeyCancel, HoldsUpTo88KilobytesOfItsTwoMicrophones) {
  if (heap_bytes() == 0) GTEST_SKIP() << "this build has an allocator of its own";
  const std::size_t bytes = bytes_per_channel<CBeamFormingKeyCancel>(beam_forming_params());
  EXPECT_GT(bytes, 1024u);
  EXPECT_LE(bytes, 88u * 1024u);
}

}  // namespace
}  // namespace sonivo
