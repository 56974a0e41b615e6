#include "platform/linux/pipewire/audio_client.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "counting_audio.h"
#include "pipewire_bench.h"
#include "platform/client_status.h"

namespace sonivo::test {
namespace {

constexpr std::int64_t kTenMs = 100000;
constexpr std::size_t kSecond = 48000;

class PipeWireClientTest : public PipeWireTest {
 protected:
  std::unique_ptr<AudioClient> client(DataFlow flow, const std::string& id,
                                      const WAVEFORMATEXTENSIBLE& format = pcm_format(48000, 16, 2)) {
    std::unique_ptr<AudioClient> made;
    const auto its_endpoint = endpoint(flow, id);
    if (!its_endpoint || its_endpoint->activate_audio_client(made) != kOk) return nullptr;
    EXPECT_EQ(made->initialize(kStreamEventCallback | kStreamAutoConvertPcm, kTenMs, kTenMs, format), kOk);
    EXPECT_EQ(made->set_event(event_.get()), kOk);
    return made;
  }
  bool woken(std::uint32_t limit_ms = 5000) {
    const std::array all{event_.get()};
    return half_->events.wait_any(all, limit_ms).index.has_value();
  }
  /// Records so many frames; `largest` becomes the largest packet.
  std::vector<StereoFrame> record(AudioClient& client, std::size_t count, std::uint32_t& largest) {
    std::vector<StereoFrame> heard;
    std::unique_ptr<AudioCaptureClient> packets;
    EXPECT_EQ(client.capture_service(packets), kOk);
    while (heard.size() < count && woken()) {
      const std::byte* data = nullptr;
      std::uint32_t frames = 0;
      std::uint32_t flags = 0;
      if (failed(packets->get_buffer(data, frames, flags))) break;
      largest = std::max(largest, frames);
      const std::size_t before = heard.size();
      heard.resize(before + frames);
      std::memcpy(heard.data() + before, data, frames * sizeof(StereoFrame));
      packets->release_buffer(frames);
    }
    return heard;
  }
  /// Records from a microphone that is spoken into, and then lets 200 ms wait.
  void record_and_leave(AudioClient& mic) {
    ASSERT_EQ(mic.start(), kOk);
    std::uint32_t largest = 0;
    record(mic, kSecond / 10, largest);
    std::uint32_t padding = 0;
    ASSERT_TRUE(comes_true([&] { return mic.current_padding(padding) == kOk && padding > kSecond / 5; }));
  }
  /// Plays so many counting frames, from the first.
  void play(AudioClient& client, std::size_t count) {
    std::unique_ptr<AudioRenderClient> packets;
    ASSERT_EQ(client.render_service(packets), kOk);
    std::uint32_t size = 0;
    ASSERT_EQ(client.buffer_size(size), kOk);
    ASSERT_EQ(client.start(), kOk);
    for (std::size_t played = 0; played < count;) {
      std::uint32_t padding = 0;
      ASSERT_EQ(client.current_padding(padding), kOk);
      std::byte* data = nullptr;
      ASSERT_EQ(packets->get_buffer(size - padding, data), kOk);
      for (std::uint32_t i = 0; i < size - padding; ++i) {
        const StereoFrame frame = counting_frame(played++);
        std::memcpy(data + i * sizeof frame, &frame, sizeof frame);
      }
      ASSERT_EQ(packets->release_buffer(size - padding, 0), kOk);
      ASSERT_TRUE(woken());
    }
  }

  std::unique_ptr<Event> event_ = linux::DescriptorEvents().create(Reset::automatic);
};

TEST_F(PipeWireClientTest, AMicrophoneIsHeardBitForBitWhateverTheQuantum) {
  const std::string wav = server_->folder().write("voice.wav", counting_wav(60 * kSecond));
  const auto voice = server_->speak_into("notebook.microphone", wav);
  const auto mic = client(DataFlow::capture, "notebook.microphone");
  ASSERT_NE(mic, nullptr);
  ASSERT_EQ(mic->start(), kOk);
  for (const unsigned quantum : {64u, 256u, 480u, 1024u, 2048u}) {
    server_->force("clock.force-quantum", quantum);
    std::uint32_t largest = 0;
    const auto heard = record(*mic, kSecond, largest);
    ASSERT_GE(heard.size(), kSecond) << quantum;
    // The one who speaks has no real-time priority; a busy machine makes it miss some of the shortest turns.
    EXPECT_GE(longest_run(heard), quantum == 64 ? kSecond / 50 : kOnePiece) << quantum;
    EXPECT_LE(largest, 480u) << quantum;
  }
}

TEST_F(PipeWireClientTest, OneMicrophoneIsHeardInBothChannels) {
  server_->plug_microphone("usb.single", {"MONO"});
  ASSERT_TRUE(comes_true([&] { return endpoint(DataFlow::capture, "usb.single") != nullptr; }));
  const auto voice =
      server_->speak_into("usb.single", server_->folder().write("voice.wav", counting_wav(60 * kSecond)), {"MONO"});
  const auto microphone = client(DataFlow::capture, "usb.single");
  ASSERT_NE(microphone, nullptr);
  ASSERT_EQ(microphone->start(), kOk);
  std::uint32_t largest = 0;
  const auto heard = record(*microphone, 2 * kSecond, largest);
  ASSERT_GE(heard.size(), 2 * kSecond);
  const std::span latest = std::span(heard).last(kOnePiece);
  EXPECT_TRUE(std::all_of(latest.begin(), latest.end(),
                          [](const StereoFrame& each) { return each[0] >= 1 && each[0] == each[1]; }));
}

TEST_F(PipeWireClientTest, OfFourMicrophonesTheFirstTwoAreHeard) {
  const std::string wav = server_->folder().write("voice.wav", counting_wav(60 * kSecond));
  const std::vector<std::vector<std::string>> arrays{{"FL", "FR", "RL", "RR"}, {"AUX0", "AUX1", "AUX2", "AUX3"}};
  for (const auto& channels : arrays) {
    const std::string name = "usb.array." + channels[0];
    server_->plug_microphone(name, channels);
    ASSERT_TRUE(comes_true([&] { return endpoint(DataFlow::capture, name) != nullptr; }));
    const auto voice = server_->speak_into(name, wav, {channels[0], channels[1]});
    const auto microphone = client(DataFlow::capture, name);
    ASSERT_NE(microphone, nullptr);
    ASSERT_EQ(microphone->start(), kOk);
    std::uint32_t largest = 0;
    EXPECT_GE(longest_run(record(*microphone, 2 * kSecond, largest)), kOnePiece) << name;
  }
}

TEST_F(PipeWireClientTest, AMicrophoneIsHeardAgainAfterTheGraphChangedItsRate) {
  const std::string wav = server_->folder().write("voice.wav", counting_wav(60 * kSecond));
  const auto voice = server_->speak_into("notebook.microphone", wav);
  const auto mic = client(DataFlow::capture, "notebook.microphone");
  ASSERT_EQ(mic->start(), kOk);
  std::uint32_t largest = 0;
  ASSERT_GE(record(*mic, kSecond / 2, largest).size(), kSecond / 2);
  server_->force("clock.force-rate", 44100);
  ASSERT_GE(record(*mic, kSecond / 2, largest).size(), kSecond / 2);
  server_->force("clock.force-rate", 48000);
  EXPECT_GE(longest_run(record(*mic, kSecond, largest)), kOnePiece);
  EXPECT_LE(largest, 480u);
}

TEST_F(PipeWireClientTest, PacketsOfALongQuantumComeEvenly) {
  const std::string wav = server_->folder().write("voice.wav", counting_wav(60 * kSecond));
  const auto voice = server_->speak_into("notebook.microphone", wav);
  server_->force("clock.force-quantum", 2048);
  const auto mic = client(DataFlow::capture, "notebook.microphone");
  ASSERT_EQ(mic->start(), kOk);
  std::uint32_t largest = 0;
  record(*mic, kSecond / 2, largest);
  int close = 0;
  for (int i = 0; i < 50; ++i) {  // five packets to 42.7 ms: 8.5 ms apart
    const auto before = std::chrono::steady_clock::now();
    record(*mic, 1, largest);
    if (std::chrono::steady_clock::now() - before < std::chrono::milliseconds(4)) ++close;
  }
  EXPECT_LE(close, 5);
}

TEST_F(PipeWireClientTest, OfWhatAClientDoesNotFetchTheLatest20MsWait) {
  const auto voice =
      server_->speak_into("notebook.microphone", server_->folder().write("voice.wav", counting_wav(60 * kSecond)));
  const auto mic = client(DataFlow::capture, "notebook.microphone");
  ASSERT_NO_FATAL_FAILURE(record_and_leave(*mic));
  std::uint32_t padding = 0;
  std::unique_ptr<AudioCaptureClient> packets;
  ASSERT_EQ(mic->capture_service(packets), kOk);
  const std::byte* data = nullptr;
  std::uint32_t frames = 0;
  std::uint32_t flags = 0;
  ASSERT_EQ(packets->get_buffer(data, frames, flags), kOk);
  ASSERT_EQ(packets->release_buffer(frames), kOk);
  ASSERT_EQ(mic->current_padding(padding), kOk);
  EXPECT_GE(padding + frames, kSecond * 20 / 1000);
  EXPECT_LE(padding + frames, kSecond * 30 / 1000) << "20 ms, and a packet that came meanwhile";
}

TEST_F(PipeWireClientTest, WhatIsPlayedReachesTheSpeakersBitForBit) {
  const std::string wav = server_->folder() / "heard.wav";
  auto recorder = server_->record("notebook.speakers", wav, true);
  const auto speakers = client(DataFlow::render, "notebook.speakers");
  ASSERT_NE(speakers, nullptr);
  for (const unsigned quantum : {2048u, 64u, 1024u, 256u}) {
    server_->force("clock.force-quantum", quantum);
    play(*speakers, kSecond);
    ASSERT_EQ(speakers->stop(), kOk);
    ASSERT_EQ(speakers->reset(), kOk);
  }
  recorder.end(2);
  std::vector<std::size_t> runs = counting_runs(frames_of_wav(wav));
  std::erase_if(runs, [](std::size_t run) { return run < kOnePiece; });
  EXPECT_GE(runs.size(), 4u);  // one or more of each turn of the loop
}

TEST_F(PipeWireClientTest, AResetDropsWhatWaitsForTheClient) {
  const auto voice =
      server_->speak_into("notebook.microphone", server_->folder().write("voice.wav", counting_wav(60 * kSecond)));
  const auto mic = client(DataFlow::capture, "notebook.microphone");
  ASSERT_NO_FATAL_FAILURE(record_and_leave(*mic));
  std::uint32_t padding = 0;
  ASSERT_EQ(mic->stop(), kOk);
  ASSERT_EQ(mic->reset(), kOk);
  ASSERT_EQ(mic->current_padding(padding), kOk);
  EXPECT_LT(padding, kSecond / 20) << "but for a turn that had begun";
}

/// Unlike any counting frame.
constexpr StereoFrame kUnwanted{31000, 31000};

/// Puts such frames where there is room for them.
void put_unwanted(AudioClient& client, AudioRenderClient& packets, std::uint32_t flags) {
  std::uint32_t size = 0;
  std::uint32_t padding = 0;
  std::byte* data = nullptr;
  ASSERT_EQ(client.buffer_size(size), kOk);
  ASSERT_EQ(client.current_padding(padding), kOk);
  ASSERT_EQ(packets.get_buffer(size - padding, data), kOk);
  for (std::uint32_t i = 0; i < size - padding; ++i)
    std::memcpy(data + i * sizeof kUnwanted, &kUnwanted, sizeof kUnwanted);
  ASSERT_EQ(packets.release_buffer(size - padding, flags), kOk);
}

TEST_F(PipeWireClientTest, NeitherWhatAResetDroppedNorASilentPacketIsPlayed) {
  const std::string wav = server_->folder() / "heard.wav";
  auto recorder = server_->record("notebook.speakers", wav, true);
  const auto speakers = client(DataFlow::render, "notebook.speakers");
  ASSERT_NE(speakers, nullptr);
  std::unique_ptr<AudioRenderClient> packets;
  ASSERT_EQ(speakers->render_service(packets), kOk);
  put_unwanted(*speakers, *packets, 0);
  std::uint32_t padding = 0;
  ASSERT_EQ(speakers->current_padding(padding), kOk);
  EXPECT_GT(padding, 0u);
  ASSERT_EQ(speakers->reset(), kOk);
  ASSERT_EQ(speakers->current_padding(padding), kOk);
  EXPECT_EQ(padding, 0u);
  put_unwanted(*speakers, *packets, kBufferSilent);
  play(*speakers, kSecond / 2);
  for (int i = 0; i < 20; ++i) {
    put_unwanted(*speakers, *packets, kBufferSilent);
    ASSERT_TRUE(woken());
  }
  ASSERT_EQ(speakers->stop(), kOk);
  ASSERT_EQ(speakers->reset(), kOk);
  play(*speakers, kSecond / 2);
  recorder.end(2);
  const auto heard = frames_of_wav(wav);
  EXPECT_GE(longest_run(heard), kOnePiece);
  EXPECT_EQ(std::count(heard.begin(), heard.end(), kUnwanted), 0);
}

TEST_F(PipeWireClientTest, AClientOfADeviceThatGoesIsWokenAndFails) {
  server_->plug_headset();
  ASSERT_TRUE(comes_true([&] { return endpoint(DataFlow::capture, "usb.headset") != nullptr; }));
  const auto headset = client(DataFlow::capture, "usb.headset", pcm_format(48000, 16, 1));
  ASSERT_NE(headset, nullptr);
  std::unique_ptr<AudioCaptureClient> packets;
  ASSERT_EQ(headset->capture_service(packets), kOk);
  server_->unplug_headset();
  ASSERT_TRUE(woken());
  const std::byte* data = nullptr;
  std::uint32_t frames = 0;
  std::uint32_t flags = 0;
  EXPECT_EQ(packets->get_buffer(data, frames, flags), kDeviceInvalidated);
  EXPECT_EQ(headset->start(), kDeviceInvalidated);
}

TEST_F(PipeWireClientTest, AClientOfAServerThatGoesIsWokenAndFails) {
  const auto mic = client(DataFlow::capture, "notebook.microphone");
  ASSERT_EQ(mic->start(), kOk);
  server_->kill_server();
  ASSERT_TRUE(comes_true([&] { return mic->stop() == kDeviceInvalidated; }));
  EXPECT_TRUE(woken());
}

TEST_F(PipeWireClientTest, AMicrophoneWhoseClientNobodyElseKeepsRunningStaysIdle) {
  const auto mic = client(DataFlow::capture, "notebook.microphone");
  ASSERT_EQ(mic->start(), kOk);
  ASSERT_TRUE(comes_true([&] {
    return server_->run({"pw-link", "-l"}).find("sonivo.microphone") != std::string::npos;
  }));
  EXPECT_NE(server_->state_of("notebook.microphone"), "running");
}

TEST_F(PipeWireClientTest, OperationsOutOfTurnAreRefused) {
  std::unique_ptr<AudioClient> made;
  ASSERT_EQ(endpoint(DataFlow::capture, "notebook.microphone")->activate_audio_client(made), kOk);
  EXPECT_EQ(made->start(), kNotInitialized);
  auto odd = pcm_format(48000, 16, 2);
  odd.nBlockAlign = 3;
  EXPECT_EQ(made->initialize(kStreamEventCallback, kTenMs, kTenMs, odd), kUnsupportedFormat);
  ASSERT_EQ(made->initialize(kStreamEventCallback, kTenMs, kTenMs, pcm_format(48000, 16, 2)), kOk);
  EXPECT_EQ(made->initialize(kStreamEventCallback, kTenMs, kTenMs, pcm_format(48000, 16, 2)), kAlreadyInitialized);
  EXPECT_EQ(made->start(), kEventNotSet);
  std::unique_ptr<AudioRenderClient> packets;
  EXPECT_EQ(made->render_service(packets), kWrongEndpointType);
  made->set_event(event_.get());
  EXPECT_EQ(made->start(), kOk);
  EXPECT_EQ(made->start(), kNotStopped);
  EXPECT_EQ(made->reset(), kNotStopped);
  EXPECT_EQ(made->stop(), kOk);
  EXPECT_EQ(made->stop(), kWasStopped);
}

}  // namespace
}  // namespace sonivo::test
