// The stream thread's stay in the audio class.

#include <gtest/gtest.h>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;

class AudioClass : public EachDirection {
 protected:
  std::uint64_t entered() const { return bench.machine.script().count(Step::audio_class_enter); }
  std::uint64_t left() const { return bench.machine.script().count(Step::audio_class_leave); }
};
INSTANTIATE_TEST_SUITE_P(Of, AudioClass, both_directions(), direction_name);

TEST_P(AudioClass, IsLeftOncePerStream) {
  bench.start_streaming();
  EXPECT_EQ(entered(), 1u);
  EXPECT_EQ(left(), 0u);
  bench.close_application();
  bench.machine.run_for(20);
  EXPECT_EQ(left(), 1u);
  bench.open_application();
  bench.machine.run_for(20);
  EXPECT_EQ(entered(), 2u);
  bench.stream->Stop();
  EXPECT_EQ(left(), 2u);
}

TEST_P(AudioClass, IsNotLeftWhenItWasRefused) {
  bench.machine.script().fail(Step::audio_class_enter, 1);
  bench.start_streaming();
  EXPECT_EQ(entered(), 1u);
  bench.close_application();
  bench.machine.run_for(20);
  EXPECT_EQ(bench.log.count(bench.text(" stream stopped\n")), 1u);
  EXPECT_EQ(left(), 0u);
}

TEST_P(AudioClass, IsLeftWhenTheTransfersCouldNotBeSetUp) {
  bench.machine.script().fail(Step::device_transfer, error::kDeviceNotConnected);
  bench.start_streaming();
  EXPECT_GE(entered(), 1u);
  bench.stream->Stop();
  EXPECT_EQ(left(), entered());
}

}  // namespace
}  // namespace sonivo::test
