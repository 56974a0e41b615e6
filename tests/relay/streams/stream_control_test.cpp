// What other threads ask of a stream: start, stop, restart, another endpoint, the device's removal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;

class StreamControl : public EachDirection {
 protected:
  /// The record that the window is told when the virtual device is asked to go away.
  DeviceBroadcast removal_record() {
    DeviceBroadcast record;
    bench.machine.desktop().set_window_procedure(
        [&](WindowHandle window, std::uint32_t message, std::uint64_t wParam, const DeviceBroadcast& broadcast) {
          EXPECT_EQ(window, kWindow);
          EXPECT_EQ(message, 0x219u);
          EXPECT_EQ(wParam, 0x8001u);
          record = broadcast;
        });
    bench.machine.driver().query_remove(bench.pin);
    bench.machine.run_for(1);
    EXPECT_EQ(record.devicetype, 6u);
    EXPECT_NE(record.handle, nullptr);
    return record;
  }
};
INSTANTIATE_TEST_SUITE_P(Of, StreamControl, both_directions(), direction_name);

TEST_P(StreamControl, StopEndsAStreamAtOnce) {
  bench.start_streaming();
  bench.stream->Stop();
  EXPECT_EQ(bench.now_ms(), 5u);
  EXPECT_EQ(bench.machine.scheduler().live_threads(), 0u);
  EXPECT_EQ(bench.machine.driver().handles().open(), 0u);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 0u);
  EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
  EXPECT_THAT(bench.states(),
              ElementsAre("eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming", "ePhysicalStreaming"));
}

TEST_P(StreamControl, StopWaitsForThePauseOfTheFirstStateToPass) {
  bench.machine.session().set_console_session(2);
  bench.start();
  bench.machine.run_for(300);
  bench.stream->Stop();
  EXPECT_EQ(bench.now_ms(), 1000u);
  EXPECT_EQ(bench.machine.scheduler().live_threads(), 0u);
}

TEST_P(StreamControl, StopWithoutStartDoesNothing) {
  bench.stream->Stop();
  bench.stream->Stop();
  EXPECT_EQ(bench.machine.scheduler().live_threads(), 0u);
  EXPECT_EQ(bench.now_ms(), 0u);
}

TEST_P(StreamControl, StartAfterStopStreamsAgainAndForgetsTheOldRequestToStop) {
  bench.start_streaming();
  bench.stream->Stop();
  EXPECT_EQ(bench.stream->Start(), kOk);
  bench.machine.run_for(50);
  EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
  EXPECT_EQ(bench.stream->Statistics().streams, 2u);
}

TEST_P(StreamControl, StartFailsWhenThereIsNoThread) {
  bench.machine.script().fail(Step::thread_start, 1);
  EXPECT_EQ(bench.stream->Start(), kFail);
  EXPECT_EQ(bench.machine.scheduler().live_threads(), 0u);
}

TEST_P(StreamControl, StartFailsWithoutAnEventAndARestartDoesNothing) {
  for (const std::uint64_t missing : {1u, 2u}) {
    SCOPED_TRACE(missing);
    bench.machine.script().fail(Step::event_create, 1, missing);
    bench.make_stream(bench.machine.driver());
    EXPECT_EQ(bench.stream->Start(), kFail);
    bench.stream->RequestRestart();
    bench.machine.run_for(1);
    EXPECT_EQ(bench.machine.scheduler().live_threads(), 0u);
    EXPECT_TRUE(bench.states().empty());
  }
}

TEST_P(StreamControl, ARestartRequestedBeforeStreamingEndsTheNextStreamAtItsFirstStep) {
  bench.start();
  bench.machine.run_for(1);
  bench.stream->RequestRestart();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualStream);
  bench.open_application();
  bench.machine.run_for(50);
  EXPECT_EQ(bench.stream->Statistics().streams, 2u);
  EXPECT_EQ(bench.log.count(bench.text(" stream stopped\n")), 1u);
}

TEST_P(StreamControl, TheEndpointIdIsKeptAsItWasGivenAndCanBeTakenAway) {
  bench.stream->SetEndpointId(bench.physical_id);
  EXPECT_EQ(bench.stream->EndpointId(), bench.physical_id);
  bench.stream->SetEndpointId({});
  EXPECT_EQ(bench.stream->EndpointId(), "");
}

// ---- Removal of the virtual device

TEST_P(StreamControl, ADeviceThatIsAskedToGoLosesItsNoticeAndTheStreamIsRestarted) {
  bench.start_streaming();
  const DeviceBroadcast record = removal_record();
  bool dropped_before_the_close = false;
  bench.machine.script().before(Step::device_close, 1,
                                [&] { dropped_before_the_close = bench.machine.driver().removal_notices() == 0; });
  bench.stream->OnDeviceChange(kDeviceQueryRemove, &record);
  bench.machine.run_for(1);
  EXPECT_TRUE(dropped_before_the_close);
  EXPECT_EQ(bench.stream->Statistics().streams, 2u);
  EXPECT_EQ(bench.machine.driver().handles().open(), 1u);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 1u) << "of the handle that was opened anew";
}

TEST_P(StreamControl, ADeviceThatIsAskedToGoWhileNobodyStreamsLosesItsNotice) {
  bench.start();
  bench.machine.run_for(1);
  const DeviceBroadcast record = removal_record();
  bench.stream->OnDeviceChange(kDeviceQueryRemove, &record);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 0u);
}

/// The machine's bus, which asks a device to go away as soon as somebody wants to be told of that.
class HastyBus final : public DeviceBus {
 public:
  HastyBus(DeviceBus& bus, std::function<void(const DeviceBroadcast&)> ask) : bus_(bus), ask_(std::move(ask)) {}

  std::vector<DeviceInterface> interfaces(const Guid& category) override { return bus_.interfaces(category); }
  std::shared_ptr<Device> open(const std::string& path, Sharing sharing, Completion completion, Error& why) override {
    return bus_.open(path, sharing, completion, why);
  }
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast& broadcast, WindowHandle window) override {
    auto notice = bus_.notify_removal(broadcast, window);
    ask_(broadcast);
    return notice;
  }
  std::unique_ptr<Registration> notify_actions(const Device&, DeviceActionCallback) override { return nullptr; }

 private:
  DeviceBus& bus_;
  std::function<void(const DeviceBroadcast&)> ask_;
};

TEST_P(StreamControl, ADeviceThatIsAskedToGoBeforeItsNoticeIsKeptLosesIt) {
  HastyBus bus(bench.machine.driver(),
               [&](const DeviceBroadcast& record) { bench.stream->OnDeviceChange(kDeviceQueryRemove, &record); });
  bench.make_stream(bus);
  bench.start();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualStream);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 0u);
  bench.stream.reset();
}

TEST_P(StreamControl, OtherDeviceMessagesChangeNothing) {
  bench.start_streaming();
  const DeviceBroadcast record = removal_record();
  constexpr std::uint32_t kDeviceArrival = 0x8000;
  constexpr std::uint32_t kDeviceRemoveComplete = 0x8004;
  constexpr std::uint32_t kTypeInterface = 5;
  const DeviceBroadcast of_another_type{.devicetype = kTypeInterface, .handle = record.handle};
  const DeviceBroadcast of_another_handle{.devicetype = kDeviceTypeHandle, .handle = nullptr};
  bench.stream->OnDeviceChange(kDeviceArrival, &record);
  bench.stream->OnDeviceChange(kDeviceRemoveComplete, &record);
  bench.stream->OnDeviceChange(kDeviceQueryRemove, &of_another_type);
  bench.stream->OnDeviceChange(kDeviceQueryRemove, &of_another_handle);
  bench.stream->OnDeviceChange(kDeviceQueryRemove, nullptr);
  bench.machine.run_for(50);
  EXPECT_EQ(bench.stream->Statistics().streams, 1u);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 1u);
}

TEST_P(StreamControl, AMessageWithoutAnOpenDeviceChangesNothing) {
  const DeviceBroadcast record{.devicetype = kDeviceTypeHandle, .handle = nullptr};
  bench.stream->OnDeviceChange(kDeviceQueryRemove, &record);
  bench.start_streaming();
  bench.machine.run_for(50);
  EXPECT_EQ(bench.stream->Statistics().streams, 1u);
}

}  // namespace
}  // namespace sonivo::test
