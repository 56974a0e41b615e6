#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/client_status.h"
#include "platform/sim/machine.h"
#include "signals.h"

namespace sonivo::sim {
namespace {

constexpr std::uint32_t kFlags = kStreamEventCallback | kStreamAutoConvertPcm | kStreamSrcDefaultQuality;

class RenderClientTest : public testing::Test {
 protected:
  explicit RenderClientTest(const Config& config = {}) : machine(config) {}

  void open(std::uint32_t rate) {
    std::vector<std::shared_ptr<Endpoint>> list;
    ASSERT_EQ(machine.endpoints().list(DataFlow::render, kDeviceActive, list), kOk);
    ASSERT_EQ(list.at(1)->activate_audio_client(client), kOk);
    ASSERT_EQ(client->initialize(kFlags, 100000, 100000, pcm_format(rate, 16, 2)), kOk);
    ASSERT_EQ(client->set_event(event.get()), kOk);
    ASSERT_EQ(client->render_service(service), kOk);
  }

  std::uint32_t buffer_size() {
    std::uint32_t frames = 0;
    EXPECT_EQ(client->buffer_size(frames), kOk);
    return frames;
  }
  std::uint32_t padding() {
    std::uint32_t frames = 0;
    EXPECT_EQ(client->current_padding(frames), kOk);
    return frames;
  }

  void give(const std::vector<std::byte>& bytes, std::uint32_t flags = 0) {
    std::byte* data = nullptr;
    const auto frames = static_cast<std::uint32_t>(bytes.size() / 4);
    ASSERT_EQ(service->get_buffer(frames, data), kOk);
    std::memcpy(data, bytes.data(), bytes.size());
    ASSERT_EQ(service->release_buffer(frames, flags), kOk);
  }

  SimMachine machine;
  EndpointModel& speakers = machine.endpoint(kSpeakers);
  std::unique_ptr<Event> event = machine.scheduler().create(Reset::automatic);
  std::unique_ptr<AudioClient> client;
  std::unique_ptr<AudioRenderClient> service;
};

struct Engine {
  std::uint32_t rate;
  std::uint32_t period;
  std::uint32_t packet;  ///< ceil(period / ceil(period / 10 ms)), by hand
};

class RenderEngines : public RenderClientTest, public testing::WithParamInterface<Engine> {
 protected:
  RenderEngines() : RenderClientTest({.hardware_period = GetParam().period}) {}
};

TEST_P(RenderEngines, HoldsTwoPacketsOrTenMillisecondsAndPlaysWhatIsFilledUpWithoutGaps) {
  const auto [rate, period, packet] = GetParam();
  open(rate);
  EXPECT_EQ(buffer_size(), std::max(2 * packet, rate / 100));
  std::uint32_t next = 1;
  const auto fill = [&] {
    const std::uint32_t room = buffer_size() - padding();
    give(counted_frames(next, room));
    next += room;
  };
  fill();
  const Time start = machine.scheduler().now();
  ASSERT_EQ(client->start(), kOk);
  const std::array<Event*, 1> events{event.get()};
  for (int i = 0; i < 25; ++i) {
    ASSERT_EQ(machine.scheduler().wait_any(events, 1000).index, 0u);
    fill();
  }
  const std::vector<std::byte> played = speakers.played();
  EXPECT_EQ(played, counted_frames(1, played.size() / 4));
  EXPECT_EQ(speakers.render_stats().glitch_frames, 0u);
  EXPECT_EQ(speakers.render_stats().played_frames, played.size() / 4);
  const double elapsed_frames = static_cast<double>(machine.scheduler().now() - start) / 1e9 * rate;
  EXPECT_NEAR(static_cast<double>(played.size() / 4), elapsed_frames, 1.0);
}

INSTANTIATE_TEST_SUITE_P(Periods, RenderEngines,
                         testing::Values(Engine{48000, 48, 48}, Engine{48000, 441, 441}, Engine{48000, 480, 480},
                                         Engine{48000, 512, 256}, Engine{48000, 1024, 342}, Engine{48000, 2048, 410},
                                         Engine{44100, 48, 48}, Engine{44100, 441, 441}, Engine{44100, 480, 240},
                                         Engine{44100, 512, 256}, Engine{44100, 1024, 342}, Engine{44100, 2048, 410}));

TEST_F(RenderClientTest, AnEmptyBufferPlaysSilenceThatIsCounted) {
  open(48000);
  give(counted_frames(1, 700));
  client->start();
  machine.run_for(20);
  EXPECT_EQ(speakers.played(), counted_frames(1, 700) + silent_frames(260));
  EXPECT_EQ(speakers.render_stats().glitch_frames, 260u);
  EXPECT_EQ(padding(), 0u);
}

TEST_F(RenderClientTest, FramesReleasedAsSilentPlayAsZerosWhateverTheyHold) {
  open(48000);
  give(counted_frames(1, 480), kBufferSilent);
  client->start();
  machine.run_for(10);
  EXPECT_EQ(speakers.played(), silent_frames(480));
  EXPECT_EQ(speakers.render_stats().glitch_frames, 0u);
}

TEST_F(RenderClientTest, ASinkTakesWhatIsPlayed) {
  std::vector<std::byte> heard;
  speakers.set_sink(
      [&](std::span<const std::byte> frames) { heard.insert(heard.end(), frames.begin(), frames.end()); });
  open(48000);
  give(counted_frames(1, 480));
  client->start();
  machine.run_for(10);
  EXPECT_EQ(heard, counted_frames(1, 480));
  EXPECT_TRUE(speakers.played().empty());
}

TEST_F(RenderClientTest, RefusesMoreThanThereIsRoomForAndCallsOutOfTurn) {
  open(48000);
  std::byte* data = nullptr;
  EXPECT_EQ(service->get_buffer(961, data), kBufferTooLarge);
  EXPECT_EQ(service->release_buffer(1, 0), kOutOfOrder);
  EXPECT_EQ(service->get_buffer(960, data), kOk);
  EXPECT_EQ(service->get_buffer(1, data), kOutOfOrder);
  EXPECT_EQ(service->release_buffer(961, 0), kInvalidSize);
  EXPECT_EQ(service->release_buffer(960, 0), kOk);
  EXPECT_EQ(padding(), 960u);
  EXPECT_EQ(service->get_buffer(1, data), kBufferTooLarge);
}

TEST_F(RenderClientTest, ResetWhileStoppedEmptiesTheBuffer) {
  open(48000);
  give(counted_frames(1, 480));
  client->start();
  EXPECT_EQ(client->reset(), kNotStopped);
  client->stop();
  EXPECT_EQ(padding(), 480u);
  EXPECT_EQ(client->reset(), kOk);
  EXPECT_EQ(padding(), 0u);
}

TEST_F(RenderClientTest, AnUnpluggedSpeakerFailsItsClientUntilAnotherIsOpened) {
  open(48000);
  client->start();
  machine.endpoints().set_state(kSpeakers, kDeviceUnplugged);
  std::byte* data = nullptr;
  EXPECT_EQ(service->get_buffer(1, data), kDeviceInvalidated);
  machine.script().fail(Step::render_get_buffer, kFail);
  EXPECT_EQ(service->get_buffer(1, data), kFail);
  machine.script().fail(Step::render_release_buffer, kFail);
  EXPECT_EQ(service->release_buffer(0, 0), kFail);
  std::unique_ptr<AudioCaptureClient> capture;
  EXPECT_EQ(client->capture_service(capture), kDeviceInvalidated);
}

}  // namespace
}  // namespace sonivo::sim
