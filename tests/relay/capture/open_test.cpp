// Opening and closing of the physical microphone, without a chain.

#include "capture_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Values;

const std::vector<Step> kClientSteps{Step::client_initialize, Step::client_capture_service,
                                     Step::client_set_event,  Step::client_start,
                                     Step::client_stop,       Step::client_reset};

TEST(CaptureOpen, InitializesASharedClientOf10MillisecondsInTheFormatOfTheApplication) {
  RelayBench bench(untrimmed());
  start_idle(bench);
  const WAVEFORMATEXTENSIBLE format = pcm_format(44100, 24, 3);
  bench.record(format, microphone(24, 3));
  bench.machine.run_for(1);
  const auto initialized = bench.machine.endpoint(sim::kMicArray).initialized();
  ASSERT_EQ(initialized.size(), 1u);
  EXPECT_EQ(initialized[0].flags, 0x80040000u);
  EXPECT_EQ(initialized[0].buffer_100ns, 100000);
  EXPECT_EQ(initialized[0].period_100ns, 100000);
  EXPECT_EQ(initialized[0].format, format);
}

TEST(CaptureOpen, TakesTheServiceThenTheEventAndStartsLast) {
  RelayBench bench(untrimmed());
  start_idle(bench);
  const sim::Time origin = bench.machine.scheduler().now();
  bench.machine.script().start_trace();
  record_stereo(bench);
  bench.machine.run_for(1);
  EXPECT_THAT(only(steps_at(bench.machine, origin, 0), kClientSteps),
              ElementsAre("client_initialize", "client_capture_service", "client_set_event", "client_start"));
}

TEST(CaptureOpen, StopsTheClientWhenTheStreamEnds) {
  RelayBench bench(untrimmed());
  start_idle(bench);
  record_stereo(bench);
  bench.machine.run_for(15);
  const auto stops = bench.machine.script().count(Step::client_stop);
  bench.machine.driver().close_client(sim::PinId::mic);
  bench.machine.run_for(1);
  EXPECT_EQ(bench.machine.script().count(Step::client_stop), stops + 1);
  EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
  EXPECT_EQ(bench.machine.leaks().audio_services, 0u);
}

struct FailingStep {
  const char* name;
  Step step;
  std::vector<std::string> attempt;  ///< client steps of the attempt
  std::string text;                  ///< what is said, if anything
};

class CaptureOpenFailure : public ::testing::TestWithParam<FailingStep> {};

TEST_P(CaptureOpenFailure, ClosesWhatIsOpenAndTriesAgainAfter100Milliseconds) {
  const FailingStep& failing = GetParam();
  RelayBench bench(untrimmed());
  start_idle(bench);
  bench.log.clear();
  const sim::Time origin = bench.machine.scheduler().now();
  bench.machine.script().start_trace();
  bench.machine.script().fail(failing.step, status_bits(0x88890008));
  record_stereo(bench);
  bench.machine.run_for(99);
  EXPECT_EQ(only(steps_at(bench.machine, origin, 0), kClientSteps), failing.attempt);
  EXPECT_EQ(bench.machine.script().count(Step::client_initialize), 1u);
  EXPECT_EQ(recording_states(bench), std::vector<std::uint64_t>{});
  EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
  EXPECT_EQ(bench.machine.leaks().audio_services, 0u);
  EXPECT_EQ(bench.log.count(failing.text), failing.text.empty() ? 0u : 1u);
  EXPECT_EQ(traces_with(bench, "PhysicalEndpointOpen"), failing.text.empty() ? 0u : 1u);

  bench.machine.run_for(2);
  EXPECT_EQ(recording_states(bench), (std::vector<std::uint64_t>{1}));
  EXPECT_THAT(only(steps_at(bench.machine, origin, 100), kClientSteps),
              ElementsAre("client_initialize", "client_capture_service", "client_set_event", "client_start"));
}

// 0x88890008 is -2004287480 as a signed number.
INSTANTIATE_TEST_SUITE_P(
    Steps, CaptureOpenFailure,
    Values(FailingStep{"Initialize", Step::client_initialize, {"client_initialize", "client_stop"}, ""},
           FailingStep{"GetService",
                       Step::client_capture_service,
                       {"client_initialize", "client_capture_service", "client_stop"},
                       "[cap] PhysicalEndpointOpen::GetService failed. (-2004287480)\n"},
           FailingStep{"SetEventHandle",
                       Step::client_set_event,
                       {"client_initialize", "client_capture_service", "client_set_event", "client_stop"},
                       "[cap] PhysicalEndpointOpen::SetEventHandle failed. (-2004287480)\n"},
           FailingStep{
               "Start",
               Step::client_start,
               {"client_initialize", "client_capture_service", "client_set_event", "client_start", "client_stop"},
               ""}),
    [](const ::testing::TestParamInfo<FailingStep>& failing) { return failing.param.name; });

TEST(CaptureOpen, CallsNoChainWhereNoneIsCalledFor) {
  RelayBench bench(untrimmed());
  start_idle(bench);
  for (const auto& chain : {bench.chains.key_cancel, bench.chains.beam_forming, bench.chains.ai_speech}) chain->clear();
  record_stereo(bench);
  bench.machine.run_for(50);
  bench.relay->Stream(DataFlow::capture).RequestRestart();
  bench.machine.run_for(50);
  for (const auto& chain : {bench.chains.key_cancel, bench.chains.beam_forming, bench.chains.ai_speech}) {
    EXPECT_THAT(chain->calls(), ElementsAre());
  }
}

TEST(CaptureConstruction, TellsTheVersionOfEachChain) {
  RelayBench bench;
  EXPECT_THAT(bench.log.debug_strings(),
              ElementsAre("KeyCancel version: 3.14\n", "BeamformingKeyCancel version: 3.14\n",
                          "AispeechEnhance version: 3.14\n"));
  EXPECT_FALSE(bench.log.has("AispeechEnhance version: error\n"));
}

TEST(CaptureConstruction, TellsOfTheEnhancerAloneThatItsVersionCantBeRead) {
  TraceLog log;
  ScriptedChains chains;
  for (const auto& chain : {chains.key_cancel, chains.beam_forming, chains.ai_speech}) chain->answer("GetVersion", 6);
  sim::SimMachine machine;
  CAudioControl relay(machine.seams(), chains.factory());
  EXPECT_THAT(log.traces(), ElementsAre("AispeechEnhance version: error\n"));
  EXPECT_THAT(log.debug_strings(), ElementsAre());
}

}  // namespace
}  // namespace sonivo::test
