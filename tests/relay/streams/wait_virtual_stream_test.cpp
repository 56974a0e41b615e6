// The second state: until an application opens the virtual endpoint.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;

class WaitVirtualStream : public EachDirection {};
INSTANTIATE_TEST_SUITE_P(Of, WaitVirtualStream, both_directions(), direction_name);

TEST_P(WaitVirtualStream, WaitsInOneRequestUntilAnApplicationOpensTheEndpoint) {
  bench.start();
  bench.machine.run_for(60'000);
  EXPECT_THAT(bench.times_of(Step::device_wait_stream), ElementsAre(0));
  EXPECT_THAT(bench.states(), ElementsAre("eWaitVirtualDriver", "eWaitVirtualStream"));
  bench.open_application();
  bench.machine.run_for(1);
  EXPECT_THAT(bench.states(),
              ElementsAre("eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming", "ePhysicalStreaming"));
}

TEST_P(WaitVirtualStream, AnApplicationThatIsThereAlreadyIsServedAtOnce) {
  bench.open_application();
  bench.start();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
}

TEST_P(WaitVirtualStream, TheFormatOfTheApplicationIsTheFormatOfThePhysicalStream) {
  const WAVEFORMATEXTENSIBLE format = pcm_format(44100, 24, 2);
  bench.start();
  bench.open_application(format);
  bench.machine.run_for(1);
  ASSERT_EQ(bench.physical().initialized().size(), 1u);
  EXPECT_EQ(bench.physical().initialized()[0].format, format);
}

TEST_P(WaitVirtualStream, ARefusedRequestLeadsBackAtOnce) {
  bench.machine.script().fail(Step::device_wait_stream, error::kAccessDenied);
  bench.start();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.log.count(bench.text(" IOBuffer::WaitStream failed. 5\n")), 1u);
  EXPECT_THAT(bench.times_of(Step::device_wait_stream), ElementsAre(0, 0));
  EXPECT_EQ(bench.machine.script().count(Step::sleep), 0u);
  EXPECT_THAT(bench.states(),
              ElementsAre("eWaitVirtualDriver", "eWaitVirtualStream", "eWaitVirtualDriver", "eWaitVirtualStream"));
}

TEST_P(WaitVirtualStream, AFailedOutcomeLeadsBackAtOnce) {
  bench.machine.script().fail(Step::device_result, error::kInvalidFunction);
  bench.start();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.log.count(bench.text(" IOBuffer::WaitStream failed. 1\n")), 1u);
  EXPECT_THAT(bench.times_of(Step::device_wait_stream), ElementsAre(0, 0));
}

TEST_P(WaitVirtualStream, ADeviceThatGoesAwayLeadsBackToTheSearchForIt) {
  bench.start();
  bench.machine.run_for(10);
  bench.machine.driver().surprise_remove(bench.pin);
  bench.machine.run_for(1);
  EXPECT_EQ(bench.log.count(bench.text(" IOBuffer::WaitStream failed. 1167\n")), 1u);
  EXPECT_THAT(bench.times_of(Step::sleep), ElementsAre(10));
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualDriver);
}

TEST_P(WaitVirtualStream, ClosingTheDeviceEndsTheWaitAndTheStopFlagTheThread) {
  bench.start();
  bench.machine.run_for(10);
  bench.stream->Stop();
  EXPECT_EQ(bench.now_ms(), 10u);
  EXPECT_EQ(bench.log.count(bench.text(" IOBuffer::WaitStream failed. 995\n")), 1u);
  EXPECT_EQ(bench.machine.scheduler().live_threads(), 0u);
  EXPECT_THAT(bench.states(), ElementsAre("eWaitVirtualDriver", "eWaitVirtualStream"))
      << "the flag is tested at the head of each round";
}

}  // namespace
}  // namespace sonivo::test
