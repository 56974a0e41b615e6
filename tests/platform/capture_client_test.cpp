#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <vector>

#include "platform/client_status.h"
#include "platform/sim/machine.h"
#include "signals.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;

constexpr std::uint32_t kFlags = kStreamEventCallback | kStreamAutoConvertPcm;

struct Packet {
  Time time;
  std::uint32_t frames;
  std::uint32_t flags;
  std::vector<std::byte> data;
};

class CaptureClientTest : public testing::Test {
 protected:
  explicit CaptureClientTest(const Config& config = {}) : machine(config) {}

  void open(std::uint32_t rate) {
    std::vector<std::shared_ptr<Endpoint>> list;
    ASSERT_EQ(machine.endpoints().list(DataFlow::capture, kDeviceActive, list), kOk);
    ASSERT_EQ(list.at(1)->activate_audio_client(client), kOk);
    ASSERT_EQ(client->initialize(kFlags, 100000, 100000, pcm_format(rate, 16, 2)), kOk);
    ASSERT_EQ(client->set_event(event.get()), kOk);
    ASSERT_EQ(client->capture_service(service), kOk);
  }

  /// Waits for the event, then takes one packet.
  Packet next_packet() {
    const std::array<Event*, 1> events{event.get()};
    EXPECT_EQ(machine.scheduler().wait_any(events, 1000).index, 0u);
    return take();
  }

  Packet take() {
    const std::byte* data = nullptr;
    Packet packet{machine.scheduler().now(), 0, 0, {}};
    packet_status = service->get_buffer(data, packet.frames, packet.flags);
    if (packet.frames != 0) packet.data.assign(data, data + 4 * packet.frames);
    EXPECT_EQ(service->release_buffer(packet.frames), kOk);
    return packet;
  }

  SimMachine machine;
  EndpointModel& mic = machine.endpoint(kMicArray);
  std::unique_ptr<Event> event = machine.scheduler().create(Reset::automatic);
  std::unique_ptr<AudioClient> client;
  std::unique_ptr<AudioCaptureClient> service;
  Status packet_status = kOk;
};

struct Engine {
  std::uint32_t rate;
  std::uint32_t period;
};

class CaptureEngines : public CaptureClientTest, public testing::WithParamInterface<Engine> {
 protected:
  CaptureEngines() : CaptureClientTest({.hardware_period = GetParam().period}) {}
};

TEST_P(CaptureEngines, DeliversTheSourceWithoutGapsInPacketsOfAtMostTenMilliseconds) {
  const auto [rate, period] = GetParam();
  mic.set_source(counting_source(1));
  open(rate);
  const Time start = machine.scheduler().now();
  ASSERT_EQ(client->start(), kOk);
  std::vector<std::byte> heard;
  Time last = start;
  for (int i = 0; i < 25; ++i) {
    const Packet packet = next_packet();
    if (i == 0) {
      EXPECT_NEAR(static_cast<double>(packet.time - start), 1e9 * period / rate, 1.0);
    }
    EXPECT_LE(packet.frames, rate / 100);
    EXPECT_EQ(packet.flags, 0u);
    heard = std::move(heard) + packet.data;
    last = packet.time;
  }
  EXPECT_EQ(heard, counted_frames(1, heard.size() / 4));
  // One period late at least, and no packet of 10 ms more than that.
  const double delay = static_cast<double>(last - start) / 1e9 * rate - static_cast<double>(heard.size() / 4);
  EXPECT_GE(delay, -0.001);
  EXPECT_LT(delay, period);
  EXPECT_EQ(mic.capture_stats().consumed_frames, heard.size() / 4);
  EXPECT_EQ(mic.capture_stats().glitches, 0u);
}

INSTANTIATE_TEST_SUITE_P(Periods, CaptureEngines,
                         testing::Values(Engine{48000, 48}, Engine{48000, 441}, Engine{48000, 480}, Engine{48000, 512},
                                         Engine{48000, 1024}, Engine{48000, 2048}, Engine{44100, 48},
                                         Engine{44100, 441}, Engine{44100, 480}, Engine{44100, 512},
                                         Engine{44100, 1024}, Engine{44100, 2048}));

TEST_F(CaptureClientTest, ASourceThatEndsIsFollowedBySilence) {
  mic.set_source(memory_source(counted_frames(1, 700)));
  open(48000);
  client->start();
  EXPECT_EQ(next_packet().data, counted_frames(1, 480));
  EXPECT_EQ(next_packet().data, counted_frames(481, 220) + silent_frames(260));
  EXPECT_EQ(next_packet().data, silent_frames(480));
}

TEST_F(CaptureClientTest, PacketsQueueUpAndTheEventComesAgainUntilAllAreTaken) {
  mic.set_source(counting_source(0));
  open(48000);
  client->start();
  machine.run_for(35);
  EXPECT_EQ(next_packet().data, counted_frames(0, 480));
  EXPECT_EQ(next_packet().data, counted_frames(480, 480));
  EXPECT_EQ(next_packet().data, counted_frames(960, 480));
  EXPECT_EQ(machine.scheduler().tick_ms(), 1'000'035u);
  EXPECT_EQ(next_packet().time, 1'000'040 * kMillisecond);
}

TEST_F(CaptureClientTest, MoreThan200MsWaitingLosesTheOldest) {
  mic.set_source(counting_source(0));
  open(48000);
  client->start();
  machine.run_for(230);
  EXPECT_EQ(mic.capture_stats().glitches, 3u);
  EXPECT_EQ(mic.capture_stats().lost_frames, 1440u);
  EXPECT_EQ(next_packet().data, counted_frames(1440, 480));
}

TEST_F(CaptureClientTest, NothingWaitingIsASuccessWithNoFrames) {
  open(48000);
  client->start();
  EXPECT_EQ(take().frames, 0u);
  EXPECT_EQ(packet_status, kBufferEmpty);
}

TEST_F(CaptureClientTest, ASilentPacketIsFlaggedAndItsMemoryIsNotTheSignal) {
  mic.set_source(counting_source(0));
  mic.make_packet_silent(1);
  open(48000);
  client->start();
  EXPECT_EQ(next_packet().flags, 0u);
  const Packet silent = next_packet();
  EXPECT_EQ(silent.flags, kBufferSilent);
  EXPECT_EQ(silent.data, std::vector<std::byte>(4 * 480, std::byte{0x55}));
  EXPECT_EQ(next_packet().data, counted_frames(960, 480)) << "its frames have passed";
}

TEST_F(CaptureClientTest, AnEmptyPacketComesBetweenOthersAndLosesNoFrame) {
  mic.set_source(counting_source(0));
  mic.make_packet_empty(1);
  open(48000);
  client->start();
  EXPECT_EQ(next_packet().data, counted_frames(0, 480));
  EXPECT_EQ(next_packet().frames, 0u);
  EXPECT_EQ(packet_status, kOk);
  EXPECT_EQ(next_packet().data, counted_frames(480, 480));
}

TEST_F(CaptureClientTest, StopKeepsWhatWaitsResetDropsItAndStartBeginsANewPhase) {
  mic.set_source(counting_source(0));
  open(48000);
  client->start();
  machine.run_for(25);
  EXPECT_EQ(client->reset(), kNotStopped);
  EXPECT_EQ(client->stop(), kOk);
  EXPECT_EQ(client->stop(), kWasStopped);
  machine.run_for(100);
  EXPECT_EQ(take().data, counted_frames(0, 480));
  EXPECT_EQ(client->reset(), kOk);
  EXPECT_EQ(mic.capture_stats().dropped_frames, 480u);
  EXPECT_EQ(take().frames, 0u);
  EXPECT_EQ(client->start(), kOk);
  EXPECT_EQ(client->start(), kNotStopped);
  next_packet();  // woken by the event of the packets that reset dropped
  const Packet packet = next_packet();
  EXPECT_EQ(packet.time, 1'000'135 * kMillisecond);
  EXPECT_EQ(packet.data, counted_frames(960, 480));
}

TEST_F(CaptureClientTest, PacketsAreTakenAndGivenBackInTurnAndWhole) {
  open(48000);
  client->start();
  machine.run_for(30);
  const std::byte* data = nullptr;
  std::uint32_t frames = 0, flags = 0;
  EXPECT_EQ(service->get_buffer(data, frames, flags), kOk);
  EXPECT_EQ(service->get_buffer(data, frames, flags), kOutOfOrder);
  EXPECT_EQ(service->release_buffer(479), kInvalidSize);
  EXPECT_EQ(service->release_buffer(480), kOk);
  EXPECT_EQ(service->release_buffer(480), kOutOfOrder);
}

TEST_F(CaptureClientTest, ARemovedMicrophoneWakesItsClientAndFailsEveryOperation) {
  open(48000);
  client->start();
  machine.after(3, [&] { machine.endpoints().remove(kMicArray); });
  const std::array<Event*, 1> events{event.get()};
  EXPECT_EQ(machine.scheduler().wait_any(events, 1000).index, 0u);
  EXPECT_EQ(machine.scheduler().tick_ms(), 1'000'003u);
  const std::byte* data = nullptr;
  std::uint32_t frames = 0, flags = 0;
  EXPECT_EQ(service->get_buffer(data, frames, flags), kDeviceInvalidated);
  EXPECT_EQ(client->stop(), kDeviceInvalidated);
  EXPECT_EQ(client->current_padding(frames), kDeviceInvalidated);
  EXPECT_EQ(machine.scheduler().wait_any(events, 1000).index, std::nullopt) << "woken once";
}

TEST_F(CaptureClientTest, InitialiseChecksTheFormatAndKeepsWhatWasAskedFor) {
  std::vector<std::shared_ptr<Endpoint>> list;
  machine.endpoints().list(DataFlow::capture, kDeviceActive, list);
  list.at(1)->activate_audio_client(client);
  std::uint32_t frames = 0;
  EXPECT_EQ(client->start(), kNotInitialized);
  EXPECT_EQ(client->buffer_size(frames), kNotInitialized);
  EXPECT_EQ(client->initialize(kFlags, 100000, 100000, pcm_format(48000, 16, 0)), kUnsupportedFormat);
  EXPECT_EQ(client->initialize(kFlags, 100000, 100000, pcm_format(0, 16, 2)), kUnsupportedFormat);
  EXPECT_EQ(client->initialize(kStreamEventCallback, 100000, 100000, pcm_format(44100, 16, 2)), kUnsupportedFormat);
  EXPECT_EQ(client->initialize(kFlags, 200000, 100000, pcm_format(44100, 24, 1)), kOk);
  EXPECT_EQ(client->initialize(kFlags, 100000, 100000, pcm_format(44100, 24, 1)), kAlreadyInitialized);
  EXPECT_EQ(client->start(), kEventNotSet);
  std::unique_ptr<AudioRenderClient> render;
  EXPECT_EQ(client->render_service(render), kWrongEndpointType);
  ASSERT_EQ(mic.initialized().size(), 4u);
  EXPECT_EQ(mic.initialized()[3].flags, 0x80040000u);
  EXPECT_EQ(mic.initialized()[3].buffer_100ns, 200000);
  EXPECT_EQ(mic.initialized()[3].period_100ns, 100000);
  EXPECT_EQ(mic.initialized()[3].format, pcm_format(44100, 24, 1));
}

TEST_F(CaptureClientTest, EveryOperationFailsAsScripted) {
  open(48000);
  const Status status = status_bits(0x88890010);
  std::uint32_t frames = 0, flags = 0;
  const std::byte* data = nullptr;
  WAVEFORMATEXTENSIBLE format;
  const std::vector<std::pair<Step, std::function<Status()>>> operations = {
      {Step::client_initialize, [&] { return client->initialize(kFlags, 1, 1, format); }},
      {Step::client_set_event, [&] { return client->set_event(event.get()); }},
      {Step::client_capture_service, [&] { return client->capture_service(service); }},
      {Step::client_buffer_size, [&] { return client->buffer_size(frames); }},
      {Step::client_padding, [&] { return client->current_padding(frames); }},
      {Step::client_start, [&] { return client->start(); }},
      {Step::client_stop, [&] { return client->stop(); }},
      {Step::client_reset, [&] { return client->reset(); }},
      {Step::client_engine_period, [&] { return client->current_engine_period(frames); }},
      {Step::client_mix_format, [&] { return client->mix_format(format); }},
      {Step::capture_get_buffer, [&] { return service->get_buffer(data, frames, flags); }},
      {Step::capture_release_buffer, [&] { return service->release_buffer(0); }},
  };
  for (const auto& [step, operation] : operations) {
    machine.script().fail(step, status);
    EXPECT_EQ(operation(), status) << to_string(step);
  }
}

TEST_F(CaptureClientTest, ClientsAndServicesAreCountedWhileTheyLive) {
  open(48000);
  client->start();
  EXPECT_EQ(machine.leaks().audio_clients, 1u);
  EXPECT_EQ(machine.leaks().audio_services, 1u);
  client.reset();
  machine.run_for(50);
  EXPECT_EQ(mic.capture_stats().packets, 0u) << "a client that is let go stops";
  service.reset();
  event.reset();
  EXPECT_EQ(machine.leaks(), Leaks{});
}

TEST(EnginePeriod, IsTheEndpointsInItsOwnFrames) {
  SimMachine machine({.rate_hz = 44100, .hardware_period = 512, .pins = {.virtual_period = 448}});
  std::vector<std::shared_ptr<Endpoint>> list;
  machine.endpoints().list(DataFlow::capture, kDeviceActive, list);
  std::unique_ptr<AudioClient> of_virtual, of_physical;
  list.at(0)->activate_audio_client(of_virtual);
  list.at(1)->activate_audio_client(of_physical);
  std::uint32_t frames = 0;
  EXPECT_EQ(of_virtual->current_engine_period(frames), kOk);
  EXPECT_EQ(frames, 448u);
  EXPECT_EQ(of_physical->current_engine_period(frames), kOk);
  EXPECT_EQ(frames, 512u);
  WAVEFORMATEXTENSIBLE format;
  EXPECT_EQ(of_physical->mix_format(format), kOk);
  EXPECT_EQ(format, pcm_format(44100, 16, 2));
}

}  // namespace
}  // namespace sonivo::sim
