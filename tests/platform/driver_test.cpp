#include "platform/sim/driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "platform/sim/machine.h"
#include "signals.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;

constexpr std::uint32_t kWaitStream = 0x80000000;
constexpr std::uint32_t kTransfer = 0x80000004;
constexpr std::uint32_t kFeedback = 0x80000008;
constexpr std::size_t kFrameBytes = 4;

const WAVEFORMATEXTENSIBLE kFormat = pcm_format(48000, 16, 2);

/// An overlapped request with its own memory and event.
struct Request {
  explicit Request(SimMachine& machine, std::size_t frames = 480)
      : event(machine.scheduler().create(Reset::manual)), data(frames * kFrameBytes) {
    overlapped.hEvent = event.get();
  }
  Error write(Device& device) { return device.control(kTransfer, data, {}, overlapped); }
  Error read(Device& device) { return device.control(kTransfer, {}, data, overlapped); }
  Error wait_stream(Device& device) {
    data.assign(sizeof(WAVEFORMATEXTENSIBLE), std::byte{0xEE});
    return device.control(kWaitStream, {}, data, overlapped);
  }
  bool signalled(SimMachine& machine) {
    const std::array<Event*, 1> events{event.get()};
    return machine.scheduler().wait_any(events, 0).index.has_value();
  }

  std::unique_ptr<Event> event;
  std::vector<std::byte> data;
  Overlapped overlapped;
};

class DriverTest : public testing::Test {
 protected:
  std::shared_ptr<Device> open(PinId pin) {
    Error why = error::kNone;
    auto device = machine.driver().open(SimDriver::device_path(pin), Sharing::exclusive, Completion::overlapped, why);
    EXPECT_EQ(why, error::kNone);
    return device;
  }
  Error open_error(const std::string& path, Sharing sharing) {
    Error why = error::kNone;
    machine.driver().open(path, sharing, Completion::overlapped, why);
    return why;
  }
  static Error send_feedback(Device& device, std::int32_t value) {
    std::uint32_t transferred = 0;
    return device.control_now(kFeedback, std::as_bytes(std::span(&value, 1)), {}, transferred);
  }

  SimMachine machine;
  SimDriver& driver = machine.driver();
};

TEST_F(DriverTest, ListsAForeignInterfaceThenThePairAndNothingForOtherClasses) {
  const auto interfaces = driver.interfaces(kCategoryAudio);
  ASSERT_EQ(interfaces.size(), 3u);
  EXPECT_NE(interfaces[0].service, "NorvellRelay");
  EXPECT_EQ(interfaces[1].path, R"(\\?\root#media#0000#{6994ad04-93ef-11d0-a3cc-00a0c9223196}\wavemicin)");
  EXPECT_EQ(interfaces[1].service, "NorvellRelay");
  EXPECT_EQ(interfaces[2].path, R"(\\?\root#media#0000#{6994ad04-93ef-11d0-a3cc-00a0c9223196}\wavespeaker)");
  EXPECT_TRUE(driver.interfaces(kEndpointGuidKey.fmtid).empty());
}

TEST_F(DriverTest, OpensThePinsByTheirPathsOnly) {
  EXPECT_EQ(SimDriver::device_path(PinId::speaker),
            R"(\\?\root#media#0000#{6994ad04-93ef-11d0-a3cc-00a0c9223196}\VADrv\WaveSpeaker)");
  EXPECT_EQ(open_error(SimDriver::device_path(PinId::mic), Sharing::exclusive), error::kNone);
  EXPECT_EQ(open_error(driver.interfaces(kCategoryAudio)[1].path, Sharing::exclusive), error::kFileNotFound);
}

TEST_F(DriverTest, AnExclusiveHandleKeepsOthersOutAndAProbeDoesNotStay) {
  const std::string path = SimDriver::device_path(PinId::mic);
  EXPECT_EQ(open_error(path, Sharing::shared), error::kNone);
  auto device = open(PinId::mic);
  EXPECT_EQ(open_error(path, Sharing::exclusive), error::kSharingViolation);
  EXPECT_EQ(open_error(path, Sharing::shared), error::kSharingViolation);
  EXPECT_EQ(open_error(SimDriver::device_path(PinId::speaker), Sharing::exclusive), error::kNone);
  device->close();
  EXPECT_EQ(open_error(path, Sharing::exclusive), error::kNone);
  EXPECT_EQ(driver.handles().opened, 4u);
  EXPECT_EQ(driver.handles().open(), 0u);
}

TEST_F(DriverTest, AStreamRequestWaitsForAnApplicationAndBringsItsFormat) {
  const auto device = open(PinId::mic);
  Request request(machine);
  EXPECT_EQ(request.wait_stream(*device), error::kIoPending);
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->result(request.overlapped, transferred, false), error::kIoPending);
  machine.after(70, [&] { driver.open_recorder(pcm_format(44100, 24, 1)); });
  EXPECT_EQ(device->result(request.overlapped, transferred, true), error::kNone);
  EXPECT_EQ(machine.scheduler().tick_ms(), 1'000'070u);
  EXPECT_EQ(transferred, 40u);
  const WAVEFORMATEXTENSIBLE format = pcm_format(44100, 24, 1);
  EXPECT_EQ(std::memcmp(request.data.data(), &format, sizeof format), 0);
}

TEST_F(DriverTest, AStreamRequestEndsAtOnceWhileAnApplicationIsThereAndWaitsAgainAfterIt) {
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  Request request(machine);
  EXPECT_EQ(request.wait_stream(*device), error::kNone);
  EXPECT_TRUE(request.signalled(machine));
  driver.close_client(PinId::mic);
  EXPECT_EQ(request.wait_stream(*device), error::kIoPending);
  EXPECT_FALSE(request.signalled(machine));
  device->close();
}

TEST_F(DriverTest, ClosingTheHandleEndsAWaitingStreamRequestAndAllLaterOnesFail) {
  const auto device = open(PinId::mic);
  Request request(machine);
  request.wait_stream(*device);
  machine.after(5, [&] { device->close(); });
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->result(request.overlapped, transferred, true), error::kOperationAborted);
  EXPECT_TRUE(request.signalled(machine));
  EXPECT_EQ(request.wait_stream(*device), error::kInvalidHandle);
  EXPECT_FALSE(request.overlapped.pending);
}

TEST_F(DriverTest, TransfersCompleteOneAPeriodAndInOrder) {
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  std::deque<Request> requests;  // they must stay in place
  for (std::uint32_t i = 0; i < 5; ++i) {
    requests.emplace_back(machine);
    requests.back().data = counted_frames(1000 * i, 480);
    EXPECT_EQ(requests.back().write(*device), error::kIoPending);
  }
  EXPECT_EQ(driver.pending_requests(), 5u);
  machine.run_for(9);
  EXPECT_FALSE(requests[0].signalled(machine));
  for (std::size_t i = 0; i < 5; ++i) {
    machine.run_for(i == 0 ? 1 : 10);
    EXPECT_TRUE(requests[i].signalled(machine));
    EXPECT_EQ(requests[i].overlapped.transferred, 480u * kFrameBytes);
    const bool next_too = i + 1 < 5 && requests[i + 1].signalled(machine);
    EXPECT_FALSE(next_too);
  }
  std::vector<std::byte> expected;
  for (std::uint32_t i = 0; i < 5; ++i) expected = expected + counted_frames(1000 * i, 480);
  EXPECT_EQ(driver.recording(), expected);
  EXPECT_EQ(driver.stats(PinId::mic).transfers, 5u);
}

TEST_F(DriverTest, APeriodLastsAsLongAsItsTransfer) {
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  Request longer(machine, 960), shorter(machine, 240);
  longer.write(*device);
  shorter.write(*device);
  machine.run_for(19);
  EXPECT_TRUE(longer.overlapped.pending);
  machine.run_for(1);
  EXPECT_FALSE(longer.overlapped.pending);
  machine.run_for(4);
  EXPECT_TRUE(shorter.overlapped.pending);
  machine.run_for(1);
  EXPECT_FALSE(shorter.overlapped.pending);
}

TEST_F(DriverTest, WithoutATransferTheRecorderHearsSilenceInEnginePeriods) {
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  machine.run_for(20);
  Request request(machine);
  request.data = counted_frames(1, 480);
  request.write(*device);
  machine.run_for(20);
  EXPECT_EQ(driver.recording(), silent_frames(960) + counted_frames(1, 480) + silent_frames(480));
  EXPECT_EQ(driver.stats(PinId::mic).starved_frames, 1440u);
  EXPECT_EQ(driver.stats(PinId::mic).frames, 1920u);
}

TEST_F(DriverTest, ASpeakerTransferBringsWhatIsPlayedThenAndTheRestIsDropped) {
  const auto device = open(PinId::speaker);
  driver.open_player(kFormat, counting_source(0));
  machine.run_for(10);
  Request first(machine), second(machine);
  first.read(*device);
  second.read(*device);
  machine.run_for(30);
  EXPECT_EQ(first.data, counted_frames(480, 480));
  EXPECT_EQ(second.data, counted_frames(960, 480));
  EXPECT_EQ(driver.stats(PinId::speaker).starved_frames, 960u);
}

TEST_F(DriverTest, AnApplicationThatLeavesFailsTheOutstandingTransfersAndTheNextOnes) {
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  Request request(machine);
  request.write(*device);
  driver.close_client(PinId::mic);
  std::uint32_t transferred = 1;
  EXPECT_EQ(device->result(request.overlapped, transferred, true), error::kDeviceNotConnected);
  EXPECT_EQ(transferred, 0u);
  EXPECT_EQ(request.write(*device), error::kDeviceNotConnected);
}

TEST_F(DriverTest, ACancelledTransferIsTouchedNoMoreAndTheNextTakesItsPlace) {
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  Request next(machine);
  next.data = counted_frames(7, 480);
  {
    Request request(machine);
    request.write(*device);
    next.write(*device);
    device->cancel(request.overlapped);
    EXPECT_EQ(request.overlapped.error, error::kOperationAborted);
    EXPECT_FALSE(request.overlapped.pending);
  }
  machine.run_for(10);
  EXPECT_EQ(driver.recording(), counted_frames(7, 480));
}

TEST_F(DriverTest, RefusesWrongSizesDirectionsAndCodes) {
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  std::vector<std::byte> bytes(40);
  const std::span<std::byte> some(bytes);
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->control_now(kWaitStream, {}, some.first(39), transferred), error::kInvalidParameter);
  EXPECT_EQ(device->control_now(kTransfer, {}, {}, transferred), error::kInvalidParameter);
  EXPECT_EQ(device->control_now(kTransfer, some.first(6), {}, transferred), error::kInvalidParameter);
  EXPECT_EQ(device->control_now(kTransfer, {}, some, transferred), error::kInvalidParameter);
  EXPECT_EQ(device->control_now(kFeedback, some.first(3), {}, transferred), error::kInvalidParameter);
  EXPECT_EQ(send_feedback(*device, 2), error::kInvalidParameter);
  EXPECT_EQ(device->control_now(0x8000000C, some, {}, transferred), error::kInvalidFunction);
}

TEST_F(DriverTest, TheSynchronousFormWaitsForTheOutcome) {
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  const std::vector<std::byte> data = counted_frames(1, 480);
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->control_now(kTransfer, data, {}, transferred), error::kNone);
  EXPECT_EQ(transferred, 480u * kFrameBytes);
  EXPECT_EQ(machine.scheduler().tick_ms(), 1'000'010u);
}

TEST_F(DriverTest, ScriptedFailuresReachTheCaller) {
  machine.script().fail(Step::device_open, error::kAccessDenied);
  EXPECT_EQ(open_error(SimDriver::device_path(PinId::mic), Sharing::exclusive), error::kAccessDenied);
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  Request request(machine);
  machine.script().fail(Step::device_transfer, error::kInvalidData);
  EXPECT_EQ(request.write(*device), error::kInvalidData);
  EXPECT_EQ(driver.pending_requests(), 0u);
  machine.script().fail(Step::device_result, error::kInvalidData);
  request.write(*device);
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->result(request.overlapped, transferred, true), error::kInvalidData);
  EXPECT_EQ(device->result(request.overlapped, transferred, true), error::kNone);
}

TEST_F(DriverTest, RemovalIsAskedForAtTheWindowThatWantsToKnow) {
  const auto device = open(PinId::mic);
  const auto notice = driver.notify_removal({kDeviceTypeHandle, device.get()}, WindowHandle{9});
  ASSERT_NE(notice, nullptr);
  std::vector<std::uint64_t> told;
  machine.desktop().set_window_procedure(
      [&](WindowHandle window, std::uint32_t message, std::uint64_t wParam, const DeviceBroadcast& broadcast) {
        told = {static_cast<std::uint64_t>(window), message, wParam, broadcast.devicetype};
        EXPECT_EQ(broadcast.handle, device.get());
      });
  driver.query_remove(PinId::speaker);
  machine.run_for(1);
  EXPECT_TRUE(told.empty());
  driver.query_remove(PinId::mic);
  machine.run_for(1);
  EXPECT_THAT(told, ElementsAre(9u, 0x219u, 0x8001u, 6u));
}

TEST_F(DriverTest, ADroppedNoticeTellsNobodyAndAForeignHandleGetsNone) {
  const auto device = open(PinId::mic);
  int told = 0;
  machine.desktop().set_window_procedure(
      [&](WindowHandle, std::uint32_t, std::uint64_t, const DeviceBroadcast&) { ++told; });
  auto notice = driver.notify_removal({kDeviceTypeHandle, device.get()}, WindowHandle{9});
  EXPECT_EQ(driver.removal_notices(), 1u);
  notice.reset();
  EXPECT_EQ(driver.removal_notices(), 0u);
  driver.query_remove(PinId::mic);
  machine.run_for(1);
  EXPECT_EQ(told, 0);
  EXPECT_EQ(driver.notify_removal({kDeviceTypeHandle, nullptr}, WindowHandle{9}), nullptr);
  EXPECT_EQ(driver.notify_removal({5, device.get()}, WindowHandle{9}), nullptr);
  device->close();
  EXPECT_EQ(driver.notify_removal({kDeviceTypeHandle, device.get()}, WindowHandle{9}), nullptr);
}

TEST_F(DriverTest, APulledDeviceFailsItsRequestsForGoodAndIsBackOnlyWithANewHandle) {
  const auto device = open(PinId::mic);
  driver.open_recorder(kFormat);
  Request transfer(machine);
  transfer.write(*device);
  driver.surprise_remove(PinId::mic);
  EXPECT_EQ(transfer.overlapped.error, error::kDeviceNotConnected);
  EXPECT_EQ(transfer.write(*device), error::kDeviceNotConnected);
  EXPECT_EQ(driver.interfaces(kCategoryAudio).size(), 2u);
  device->close();
  EXPECT_EQ(open_error(SimDriver::device_path(PinId::mic), Sharing::exclusive), error::kFileNotFound);
  driver.return_device(PinId::mic);
  EXPECT_EQ(driver.interfaces(kCategoryAudio).size(), 3u);
  const auto again = open(PinId::mic);
  Request request(machine);
  EXPECT_EQ(request.wait_stream(*again), error::kIoPending) << "the application's stream went with the device";
  again->close();
}

TEST_F(DriverTest, FeedbackEndsAtOnceAndIsLoggedWithItsTime) {
  const auto device = open(PinId::mic);
  machine.run_for(3);
  EXPECT_EQ(send_feedback(*device, -1), error::kNone);
  machine.run_for(4);
  EXPECT_EQ(send_feedback(*device, 1), error::kNone);
  const auto log = driver.feedback(PinId::mic);
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0].value, -1);
  EXPECT_EQ(log[0].time, 1'000'003 * kMillisecond);
  EXPECT_EQ(log[1].value, 1);
  EXPECT_EQ(log[1].time, 1'000'007 * kMillisecond);
  EXPECT_EQ(driver.stats(PinId::mic).feedback, 1);
  EXPECT_EQ(driver.stats(PinId::speaker).feedback, 0);
}

TEST(DriverClock, TicksFollowRateDriftAndFeedbackToTheNanosecond) {
  constexpr double kDrift = 150, kTrim = 1000;
  SimMachine machine({.pins = {.virtual_period = 441, .drift_ppm = kDrift, .trim_ppm = kTrim}});
  std::vector<Time> ticks;
  const Time start = machine.scheduler().now();
  machine.driver().open_recorder(pcm_format(44100, 16, 2), [&](std::span<const std::byte> frames) {
    EXPECT_EQ(frames.size(), 441u * kFrameBytes);
    ticks.push_back(machine.scheduler().now());
  });
  Error why;
  const auto device =
      machine.driver().open(SimDriver::device_path(PinId::mic), Sharing::exclusive, Completion::overlapped, why);
  const auto feed = [&](std::int32_t value) {
    std::uint32_t transferred = 0;
    ASSERT_EQ(device->control_now(kFeedback, std::as_bytes(std::span(&value, 1)), {}, transferred), error::kNone);
  };
  machine.run_for(1234);
  feed(1);
  machine.run_for(777);
  feed(-1);
  machine.run_for(2000);

  // Piece by piece: position += duration * rate; a tick where it reaches a multiple of 441.
  const long double rate = 44100.0L * (1 + kDrift * 1e-6L);
  const struct {
    long double from_s, rate;
  } pieces[] = {{0, rate}, {1.234L, rate * (1 + kTrim * 1e-6L)}, {2.011L, rate * (1 - kTrim * 1e-6L)}};
  const long double at_1 = 1.234L * pieces[0].rate;
  const long double at_2 = at_1 + 0.777L * pieces[1].rate;
  const auto tick_s = [&](long double frame) {
    if (frame <= at_1) return frame / pieces[0].rate;
    if (frame <= at_2) return pieces[1].from_s + (frame - at_1) / pieces[1].rate;
    return pieces[2].from_s + (frame - at_2) / pieces[2].rate;
  };
  ASSERT_EQ(ticks.size(), 401u);
  for (std::size_t k = 0; k < ticks.size(); ++k) {
    const long double expected_ns = tick_s(441.0L * static_cast<long double>(k + 1)) * 1e9L;
    EXPECT_NEAR(static_cast<double>(ticks[k] - start), static_cast<double>(expected_ns), 1.0) << "tick " << k;
  }
}

TEST(EchoFilter, IsAbsentUnlessConfigured) {
  SimMachine machine;
  Error why = error::kNone;
  EXPECT_EQ(machine.driver().open(R"(\\.\KELVARECFILTER)", Sharing::shared, Completion::overlapped, why), nullptr);
  EXPECT_EQ(why, error::kFileNotFound);
}

TEST(EchoFilter, TakesTheMuteStateAndAnswersAsSet) {
  SimMachine machine({.echo_filter = true});
  EchoFilter& filter = machine.driver().echo_filter();
  Error why = error::kNone;
  auto device = machine.driver().open(R"(\\.\KELVARECFILTER)", Sharing::shared, Completion::overlapped, why);
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(filter.open_handles(), 1u);
  const std::uint32_t value = 1;
  std::uint32_t answer = 0xFFFFFFFF, transferred = 0;
  const auto tell = [&](std::uint32_t code) {
    return device->control_now(code, std::as_bytes(std::span(&value, 1)), std::as_writable_bytes(std::span(&answer, 1)),
                               transferred);
  };
  EXPECT_EQ(tell(0x9C40E0A0), error::kNone);
  EXPECT_EQ(transferred, 4u);
  EXPECT_EQ(answer, 0u);
  filter.set_answer(0x01020304, 2);
  answer = 0xFFFFFFFF;
  EXPECT_EQ(tell(0x9C40E0A0), error::kNone);
  EXPECT_EQ(transferred, 2u);
  EXPECT_EQ(answer, 0xFFFF0304);
  EXPECT_EQ(tell(0x9C40E0A4), error::kInvalidFunction);
  machine.script().fail(Step::filter_control, error::kAccessDenied);
  EXPECT_EQ(tell(0x9C40E0A0), error::kAccessDenied);
  EXPECT_THAT(filter.values(), ElementsAre(1u, 1u));
  device.reset();
  EXPECT_EQ(filter.open_handles(), 0u);
}

}  // namespace
}  // namespace sonivo::sim
