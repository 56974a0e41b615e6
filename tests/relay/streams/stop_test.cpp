// A stop that falls into a call of the machine.

#include "stream_bench.h"
#include "support/used_steps.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;

class StopDuringACall : public EachDirection {
 protected:
  /// The application is there; the nth call of the step takes 10 ms, in the middle of which the stream is stopped.
  void stop_during(Step step, std::uint64_t nth = 1) {
    bench.open_application();
    bench.machine.script().before(step, nth, [this] { bench.machine.scheduler().pass(10 * sim::kMillisecond); });
    bench.start();
    bench.machine.run_for(5);
    bench.stream->Stop();
  }
};

TEST_P(StopDuringACall, OfTheOpeningGivesThePhysicalEndpointBack) {
  const float level = bench.physical().volume().level();
  stop_during(Step::client_start);
  EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
  EXPECT_EQ(bench.machine.leaks().audio_services, 0u);
  EXPECT_EQ(bench.physical().volume().level(), level);
  EXPECT_THAT(bench.recording_messages(), ElementsAre(1, 0));
}

TEST_P(StopDuringACall, OfTheOpeningLeavesTheDeviceFreeToChange) {
  stop_during(Step::client_start);
  bench.stream->SetEndpointId(bench.other_id);
  ASSERT_EQ(bench.stream->Start(), kOk);
  bench.machine.run_for(5);
  EXPECT_EQ(bench.other().initialized().size(), 1u);
}

TEST_P(StopDuringACall, OfAnyOtherKindLeavesNothingBehind) {
  bench.start_streaming();
  bench.stream.reset();
  const std::vector<Step> used = used_steps(bench.machine.script());
  ASSERT_GT(used.size(), 20u);
  for (const Step step : used) {
    SCOPED_TRACE(to_string(step));
    StreamBench one(GetParam());
    one.open_application();
    one.machine.script().before(step, 1, [&] { one.machine.scheduler().pass(10 * sim::kMillisecond); });
    one.start();
    one.machine.run_for(5);
    const std::uint64_t before = one.now_ms();
    one.stream->Stop();
    EXPECT_LE(one.now_ms() - before, 2000u);
    EXPECT_EQ(one.machine.leaks().audio_clients, 0u);
    EXPECT_EQ(one.machine.leaks().device_handles, 0u);
    EXPECT_EQ(one.machine.leaks().threads, 0u);
    one.stream.reset();
    EXPECT_EQ(one.machine.leaks(), sim::Leaks{});
  }
}

INSTANTIATE_TEST_SUITE_P(Of, StopDuringACall, both_directions(), direction_name);

class AFormatThatContradictsItself : public EachDirection {};

TEST_P(AFormatThatContradictsItself, LeadsBackAfterThePauseAndTouchesNoEndpoint) {
  auto format = kCdStereo;
  format.nBlockAlign = 0;
  bench.start();
  bench.open_application(format);
  bench.machine.run_for(350);
  EXPECT_THAT(bench.states(), ElementsAre("eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming",  //
                                          "eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming",  //
                                          "eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming",  //
                                          "eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming"));
  EXPECT_EQ(bench.machine.script().count(Step::endpoint_activate_client), 0u);
  EXPECT_EQ(bench.stream->Statistics().streams, 0u);
}

INSTANTIATE_TEST_SUITE_P(Of, AFormatThatContradictsItself, both_directions(), direction_name);

}  // namespace
}  // namespace sonivo::test
