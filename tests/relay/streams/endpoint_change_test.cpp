// Another thread that gives a stream a new endpoint while the stream is in the middle of a call of the machine.

#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <tuple>

#include "stream_bench.h"
#include "support/used_steps.h"

namespace sonivo::test {
namespace {

using sim::Step;

constexpr StreamState kStates[] = {StreamState::eWaitVirtualDriver, StreamState::eWaitVirtualStream,
                                   StreamState::eVirtualStreaming, StreamState::ePhysicalStreaming};

/// Frames that went through the hardware of the endpoint.
std::uint64_t frames_of(const sim::EndpointModel& endpoint) {
  return endpoint.capture_stats().consumed_frames + endpoint.render_stats().played_frames;
}

/// The stream streams on `now` and has let go of `before`.
void expect_moved(StreamBench& bench, sim::EndpointModel& before, sim::EndpointModel& now) {
  EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
  EXPECT_EQ(bench.stream->EndpointId(), now.settings.id);
  EXPECT_EQ(bench.machine.leaks().audio_clients, 1u);
  EXPECT_EQ(before.volume().callbacks().size(), 0u);
  EXPECT_EQ(now.volume().callbacks().size(), 1u);
  EXPECT_EQ(before.volume().level(), sim::EndpointSettings{}.level);
  const std::uint64_t frames_before = frames_of(before);
  const std::uint64_t frames_now = frames_of(now);
  bench.machine.run_for(50);
  EXPECT_EQ(frames_of(before), frames_before);
  EXPECT_GE(frames_of(now), frames_now + 4 * 480);
}

void expect_nothing_left(StreamBench& bench) {
  const std::uint64_t before = bench.now_ms();
  bench.stream->Stop();
  EXPECT_LE(bench.now_ms() - before, 2000u);
  bench.stream.reset();
  EXPECT_EQ(bench.machine.leaks(), sim::Leaks{});
}

class EndpointChange : public ::testing::TestWithParam<DataFlow> {
 protected:
  /// The application comes after the stream, and the stream is opened anew once: all states are gone through twice.
  static void run(StreamBench& bench) {
    bench.start();
    bench.machine.run_for(2);
    bench.open_application();
    bench.machine.run_for(60);
    bench.stream->RequestRestart();
    bench.machine.run_for(60);
  }

  /// The same with another thread that changes the endpoint before the nth call of the step. The state that the stream
  /// was in, if it is the stream that makes this call.
  static std::optional<StreamState> change_during(Step step, std::uint64_t nth) {
    StreamBench bench(GetParam());
    sim::Scheduler& scheduler = bench.machine.scheduler();
    std::optional<StreamState> state;
    bench.machine.script().before(step, nth, [&] {
      constexpr std::uint64_t kStreamThread = 3;  // after the entry and the system
      if (scheduler.current_thread() != kStreamThread) return;
      state = bench.stream->State();
      scheduler.start("host", [&] { EXPECT_EQ(bench.stream->SetEndpointId(bench.other_id), kOk); })->join();
    });
    run(bench);
    if (!state) return std::nullopt;
    bench.machine.run_for(20);  // what moves the stream is the next thing that wakes it
    expect_moved(bench, bench.physical(), bench.other());
    expect_nothing_left(bench);
    return state;
  }
};

TEST_P(EndpointChange, InTheMiddleOfAnyCallOfTheStreamTakesTheStreamToTheNewEndpoint) {
  StreamBench undisturbed(GetParam());
  run(undisturbed);
  const sim::Script& calls = undisturbed.machine.script();
  std::map<StreamState, std::set<Step>> tried;
  for (const Step step : used_steps(calls)) {
    for (std::uint64_t nth = 1; nth <= calls.count(step); ++nth) {
      SCOPED_TRACE(std::string(to_string(step)) + " call " + std::to_string(nth));
      if (const auto state = change_during(step, nth)) tried[*state].insert(step);
      if (HasFailure()) return;
    }
  }
  for (const StreamState state : kStates) EXPECT_GE(tried[state].size(), 3u) << static_cast<int>(state);
}

INSTANTIATE_TEST_SUITE_P(Of, EndpointChange, both_directions(), direction_name);

/// The calls by which a stream changes its device.
class EndpointChangeDuringAChange : public ::testing::TestWithParam<std::tuple<DataFlow, Step>> {};

TEST_P(EndpointChangeDuringAChange, WaitsForItAndIsTheOneThatStays) {
  const auto [flow, step] = GetParam();
  StreamBench bench(flow, {.schedule = sim::Schedule::free});
  bench.start_streaming();
  std::promise<void> changed_back;
  std::unique_ptr<Thread> host;
  bool waited = false;
  bench.machine.script().before(step, 1, [&] {
    host = bench.machine.scheduler().start("host", [&] {
      EXPECT_EQ(bench.stream->SetEndpointId(bench.physical_id), kOk);
      changed_back.set_value();
    });
    waited = changed_back.get_future().wait_for(std::chrono::milliseconds(20)) == std::future_status::timeout;
  });
  EXPECT_EQ(bench.stream->SetEndpointId(bench.other_id), kOk);  // taken as the stream ends
  bench.machine.run_for(100);
  ASSERT_TRUE(host);
  host->join();
  host.reset();
  EXPECT_TRUE(waited);
  expect_moved(bench, bench.other(), bench.physical());
  expect_nothing_left(bench);
}

INSTANTIATE_TEST_SUITE_P(Of, EndpointChangeDuringAChange,
                         ::testing::Combine(both_directions(),
                                            ::testing::Values(Step::volume_unregister, Step::endpoints_list,
                                                              Step::endpoint_id, Step::endpoint_activate_volume,
                                                              Step::volume_mute, Step::volume_register)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param) == DataFlow::capture ? "Capture_" : "Render_") +
                                  to_string(std::get<1>(test.param));
                         });

}  // namespace
}  // namespace sonivo::test
