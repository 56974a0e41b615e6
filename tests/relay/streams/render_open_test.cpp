// Opening of the physical speaker.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(RenderOpen, AsksForEventsConversionAndTenMilliseconds) {
  for (const WAVEFORMATEXTENSIBLE& format : {pcm_format(48000, 16, 2), pcm_format(44100, 24, 2)}) {
    StreamBench bench(DataFlow::render);
    bench.start();
    bench.open_application(format);
    bench.machine.run_for(1);
    ASSERT_EQ(bench.physical().initialized().size(), 1u);
    const sim::InitializeRecord asked = bench.physical().initialized()[0];
    EXPECT_EQ(asked.flags, 0x88040000u);
    EXPECT_EQ(asked.buffer_100ns, 100000);
    EXPECT_EQ(asked.period_100ns, 100000);
    EXPECT_EQ(asked.format, format);
  }
}

TEST(RenderOpen, FillsTheBufferBeforeItSetsTheEventAndStarts) {
  StreamBench bench(DataFlow::render);
  bench.start_streaming();
  EXPECT_EQ(bench.sequence_of({Step::client_initialize, Step::client_render_service, Step::client_buffer_size,
                               Step::render_get_buffer, Step::render_release_buffer, Step::client_set_event,
                               Step::client_start, Step::client_padding, Step::client_reset}),
            names({Step::client_initialize, Step::client_render_service, Step::client_buffer_size,
                   Step::render_get_buffer, Step::render_release_buffer, Step::client_set_event, Step::client_start}));
}

TEST(RenderOpen, TheWholeBufferStartsAsSilence) {
  StreamBench bench(DataFlow::render, {.pins = {.trim_ppm = 0}});
  bench.machine.driver().open_player(kCdStereo, sim::memory_source(numbered_pcm(48000, 16, 2)));
  bench.start();
  bench.machine.run_for(100);
  EXPECT_EQ(bench.physical().render_stats().glitch_frames, 0u);
  // Two packets of 10 ms were there at the start, two more were asked for before the lead of 30 ms was complete.
  EXPECT_EQ(leading_zero_frames(bench.physical().played(), 4), 2u * 480 + 2u * 480);
}

/// Each call of the opening, in order.
constexpr Step kCalls[] = {Step::client_initialize, Step::client_render_service, Step::client_buffer_size,
                           Step::render_get_buffer, Step::render_release_buffer, Step::client_set_event,
                           Step::client_start};

class RenderOpenFailure : public ::testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(At, RenderOpenFailure, ::testing::Range<std::size_t>(0, std::size(kCalls)),
                         [](const auto& test) { return std::string(to_string(kCalls[test.param])); });

TEST_P(RenderOpenFailure, EndsTheOpeningThereAndIsTriedAgainAfterATenthOfASecond) {
  StreamBench bench(DataFlow::render);
  bench.start();
  bench.machine.run_for(1);
  bench.machine.script().fail(kCalls[GetParam()], kFail);
  bench.open_application();
  bench.machine.run_for(50);
  for (std::size_t i = 0; i < std::size(kCalls); ++i) {
    EXPECT_EQ(bench.machine.script().count(kCalls[i]), i <= GetParam() ? 1u : 0u) << to_string(kCalls[i]);
  }
  EXPECT_EQ(bench.machine.script().count(Step::client_stop), 1u);
  EXPECT_EQ(bench.machine.leaks().audio_services, 0u);
  EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
  EXPECT_THAT(bench.recording_messages(), IsEmpty());
  EXPECT_THAT(bench.times_of(Step::sleep), ElementsAre(1));
  bench.machine.run_for(60);
  EXPECT_THAT(bench.times_of(Step::client_initialize), ElementsAre(1, 101));
  EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
}

TEST(RenderClose, StopsTheClientAndLetsItGo) {
  StreamBench bench(DataFlow::render);
  bench.start_streaming();
  EXPECT_EQ(bench.machine.leaks().audio_services, 1u);
  bench.close_application();
  bench.machine.run_for(10);
  EXPECT_EQ(bench.machine.script().count(Step::client_stop), 1u);
  EXPECT_EQ(bench.machine.leaks().audio_services, 0u);
  EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
}

TEST(RenderClose, WithoutAClientStopsNothing) {
  StreamBench bench(DataFlow::render);
  bench.start();
  bench.machine.run_for(1);
  bench.machine.script().fail(Step::endpoint_activate_client, kFail);
  bench.open_application();
  bench.machine.run_for(50);
  EXPECT_EQ(bench.machine.script().count(Step::client_stop), 0u);
}

}  // namespace
}  // namespace sonivo::test
