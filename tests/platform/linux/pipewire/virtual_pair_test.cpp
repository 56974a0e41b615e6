#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include "platform/linux/pipewire/volume_request.h"
#include "virtual_pair_bench.h"

namespace sonivo::test {
namespace {

constexpr Guid kAudio{0x6994AD04, 0x93EF, 0x11D0, {0xA3, 0xCC, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};

TEST_F(VirtualPairTest, ThePairIsOnTheBusAndAmongTheEndpoints) {
  const auto there = pair_->interfaces(kAudio);
  ASSERT_EQ(there.size(), 2u);
  EXPECT_EQ(there[0].service, "NorvellRelay");
  EXPECT_THAT(there[0].path, testing::EndsWith("\\wavemicin"));
  EXPECT_THAT(there[1].path, testing::EndsWith("\\wavespeaker"));
  EXPECT_EQ(pair_->interfaces({})[0].path, "other");
  for (const auto& [flow, id] :
       {std::pair(DataFlow::capture, kVirtualMic), std::pair(DataFlow::render, kVirtualSpeaker)}) {
    std::unique_ptr<PropertyStore> store;
    PropertyValue name;
    ASSERT_EQ(endpoint(flow, id)->open_properties(store), kOk);
    ASSERT_EQ(store->value(PKEY_Device_FriendlyName, name), kOk);
    EXPECT_EQ(std::get<std::string>(name), "Norvell Audio Relay");
  }
  EXPECT_EQ(default_id(DataFlow::capture), "notebook.microphone");
  EXPECT_EQ(default_id(DataFlow::render), "notebook.speakers");
}

TEST_F(VirtualPairTest, ADeviceComesAfterItsEndpoint) {
  const auto lists_it = [&] { return testing::Matches(testing::Contains(kVirtualMic))(ids(DataFlow::capture)); };
  pair_.reset();
  ASSERT_TRUE(comes_true([&] { return !lists_it(); }));
  {
    const pipewire::Connection::Lock lock(half_->connection);  // nothing is heard of the server meanwhile
    pair_ = std::make_unique<pipewire::VirtualPair>(half_->connection, half_->graph, half_->pacer, others_);
    EXPECT_TRUE(pair_->interfaces(kAudio).empty());
    Error why = error::kNone;
    EXPECT_EQ(pair_->open(kMicPath, Sharing::shared, Completion::overlapped, why), nullptr);
    EXPECT_EQ(why, error::kFileNotFound);
  }
  ASSERT_TRUE(comes_true([&] { return pair_->interfaces(kAudio).size() == 2; }));
  EXPECT_TRUE(lists_it());
}

// Else it and the manager, which asks the nodes of all clients for something, would wait for each other.
TEST_F(VirtualPairTest, ItsNodesAnswerWhileTheSessionManagerOwesThisProcessAnAnswer) {
  const auto node = static_cast<std::uint32_t>(std::stoul(server_->property_of(kVirtualMic, "object.id")));
  server_->manager().send(SIGSTOP);
  pipewire::Connection other(server_->remote());  // the manager is asked for the defaults again for each that comes,
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // a second later
  std::atomic<int> outcome = -1;
  std::optional<pipewire::VolumeRequest> mute;
  {
    const pipewire::Connection::Lock lock(other);
    std::array<std::uint8_t, 1024> memory{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), std::uint32_t{memory.size()});
    mute.emplace(other, [&](pipewire::VolumeRequest::Outcome its) { outcome = static_cast<int>(its); });
    ASSERT_TRUE(mute->set_node_props(node, *pipewire::volume_props(builder, {}, {.muted = true})));
  }
  EXPECT_TRUE(comes_true([&] { return outcome == static_cast<int>(pipewire::VolumeRequest::Outcome::taken); }));
  server_->manager().send(SIGCONT);
  EXPECT_TRUE(comes_true([&] {
    const auto volume = half_->graph.latest_volume(kVirtualMic);
    return volume && volume->muted;
  }));
  const pipewire::Connection::Lock lock(other);
  mute.reset();
}

/// What a device says to a wait for a format at the moment in which its endpoint goes.
class LastAnswer final : public pipewire::DepartureWatch {
 public:
  LastAnswer(AudioHalf& half, Device& device) : half_(half), device_(device) {
    const pipewire::Connection::Lock lock(half_.connection);
    half_.graph.add(*this);
  }
  ~LastAnswer() {
    const pipewire::Connection::Lock lock(half_.connection);
    half_.graph.remove(*this);
  }
  void departed(const std::string& id) override {
    if (id == kVirtualMic) answer = device_.control(kWait, {}, std::as_writable_bytes(std::span(&format_, 1)), request);
  }
  std::atomic<Error> answer = error::kNone;
  Overlapped request;

 private:
  AudioHalf& half_;
  Device& device_;
  WAVEFORMATEXTENSIBLE format_;
};

TEST_F(VirtualPairTest, ADeviceGoesAfterItsEndpoint) {
  for (const bool with_server : {false, true}) {
    const auto device = open(kMicPath);
    LastAnswer last(*half_, *device);
    if (with_server) server_->kill_server();
    server_->kill_manager();
    ASSERT_TRUE(comes_true([&] { return last.answer != error::kNone; }));
    EXPECT_EQ(last.answer, error::kIoPending) << with_server;
    std::uint32_t transferred = 0;
    EXPECT_EQ(device->result(last.request, transferred, true), error::kDeviceNotConnected);
    if (with_server) break;
    ASSERT_TRUE(comes_true([&] { return pair_->interfaces(kAudio).size() == 2; }));
  }
}

TEST_F(VirtualPairTest, AVirtualDefaultIsReplacedByTheOneBeforeOrElseByTheBestThatIsThere) {
  const auto name_default = [&](const char* key, const char* node) {
    server_->set_default((std::string("default.configured.audio.") + key).c_str(), node);
    return comes_true([&] {
      return server_->run({"pw-metadata", "0", std::string("default.audio.") + key}).find(node) != std::string::npos;
    });
  };
  const auto becomes = [&](const char* id) { return comes_true([&] { return default_id(DataFlow::capture) == id; }); };
  server_->plug_microphone("plain.microphone", {"FL", "FR"});
  server_->plug_headset();
  ASSERT_TRUE(name_default("source", "plain.microphone"));
  ASSERT_TRUE(becomes("plain.microphone"));
  ASSERT_TRUE(name_default("source", kVirtualMic));
  ASSERT_TRUE(name_default("sink", kVirtualSpeaker));
  server_->run({"pw-cli", "destroy", "notebook.microphone"});
  ASSERT_TRUE(comes_true([&] { return ids(DataFlow::capture, kDeviceNotPresent).size() == 1; }));
  EXPECT_EQ(default_id(DataFlow::capture), "plain.microphone");
  EXPECT_EQ(default_id(DataFlow::render), "notebook.speakers");
  server_->run({"pw-cli", "destroy", "plain.microphone"});
  EXPECT_TRUE(becomes("usb.headset"));
  server_->plug_microphone("other.microphone", {"FL", "FR"});
  server_->plug_microphone("plain.microphone", {"FL", "FR"});
  EXPECT_TRUE(becomes("plain.microphone"));
  server_->run({"pw-cli", "destroy", "plain.microphone"});
  EXPECT_TRUE(becomes("usb.headset"));
}

TEST_F(VirtualPairTest, TheServerMakesAnyHardwareTheDefaultBeforeThePair) {
  const auto becomes = [&](const char* key, const char* node) {
    return comes_true([&] {
      return server_->run({"pw-metadata", "0", std::string("default.audio.") + key}).find(node) != std::string::npos;
    });
  };
  server_->plug_microphone("poor.microphone", {"FL", "FR"});
  server_->plug_speakers();
  server_->run({"pw-cli", "destroy", "notebook.microphone"});
  server_->run({"pw-cli", "destroy", "notebook.speakers"});
  EXPECT_TRUE(becomes("source", "poor.microphone"));
  EXPECT_TRUE(becomes("sink", "usb.speakers"));
}

TEST_F(VirtualPairTest, OneHandleAtATimeIsExclusive) {
  auto device = open(kMicPath);
  Error why = error::kNone;
  EXPECT_EQ(pair_->open(kMicPath, Sharing::shared, Completion::overlapped, why), nullptr);
  EXPECT_EQ(why, error::kSharingViolation);
  EXPECT_NE(pair_->notify_removal({kDeviceTypeHandle, device.get()}, WindowHandle::none), nullptr);
  device->close();
  EXPECT_EQ(pair_->notify_removal({kDeviceTypeHandle, device.get()}, WindowHandle::none), nullptr);
  EXPECT_NE(open(kMicPath), nullptr);
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->control_now(kWait, {}, {}, transferred), error::kInvalidHandle);
}

TEST_F(VirtualPairTest, TheFormatIsToldOnceAnApplicationRecords) {
  const auto device = open(kMicPath);
  WAVEFORMATEXTENSIBLE format;
  const auto done = linux::DescriptorEvents().create(Reset::manual);
  Overlapped request{.hEvent = done.get()};
  ASSERT_EQ(device->control(kWait, {}, std::as_writable_bytes(std::span(&format, 1)), request), error::kIoPending);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->result(request, transferred, false), error::kIoPending);
  const auto recorder = server_->record(kVirtualMic, server_->folder() / "heard.wav");
  ASSERT_EQ(device->result(request, transferred, true), error::kNone);
  EXPECT_EQ(transferred, sizeof format);
  EXPECT_EQ(format, pcm_format(48000, 24, 2));
}

TEST_F(VirtualPairTest, AnApplicationRecordsWhatTransfersCarryWhateverTheQuantum) {
  const auto device = open(kMicPath);
  for (const unsigned quantum : {64u, 2048u, 480u, 1024u, 256u}) {
    const std::string wav = server_->folder() / std::to_string(quantum);
    server_->force("clock.force-quantum", quantum);
    auto recorder = server_->record(kVirtualMic, wav);
    WAVEFORMATEXTENSIBLE format;
    ASSERT_EQ(wait_stream(*device, format), error::kNone);
    Transfers transfers(*device, true);
    ASSERT_GE(transfers.move(kRate).size(), kRate) << quantum << " " << transfers.outcome;
    recorder.end(2);
    // The recorder has no real-time priority; a busy machine makes it miss some of the shortest turns.
    EXPECT_GE(longest_run(frames_of_wav(wav)), quantum == 64 ? kRate / 50 : kOnePiece) << quantum;
    ASSERT_TRUE(comes_true([&] { return server_->state_of(kVirtualMic) != "running"; }));
  }
}

TEST_F(VirtualPairTest, TransfersTooShortForATurnFollowEachOtherWithinIt) {
  const auto device = open(kMicPath);
  const std::string wav = server_->folder() / "heard.wav";
  server_->force("clock.force-quantum", 480);
  auto recorder = server_->record(kVirtualMic, wav);
  WAVEFORMATEXTENSIBLE format;
  ASSERT_EQ(wait_stream(*device, format), error::kNone);
  Transfers transfers(*device, true, 100);
  ASSERT_GE(transfers.move(kRate).size(), kRate) << transfers.outcome;
  recorder.end(2);
  EXPECT_GE(longest_run(frames_of_wav(wav)), kOnePiece);
}

TEST_F(VirtualPairTest, TransfersReceiveWhatAnApplicationPlaysWhateverTheQuantum) {
  const auto device = open(kSpeakerPath);
  const auto player = server_->play(kVirtualSpeaker, server_->folder().write("music.wav", counting_wav(60 * kRate)));
  WAVEFORMATEXTENSIBLE format;
  ASSERT_EQ(wait_stream(*device, format), error::kNone);
  for (const unsigned quantum : {64u, 2048u, 480u, 1024u, 256u}) {
    server_->force("clock.force-quantum", quantum);
    Transfers transfers(*device, false);
    EXPECT_GE(longest_run(transfers.move(kRate)), kOnePiece) << quantum << " " << transfers.outcome;
  }
}

TEST_F(VirtualPairTest, TransfersOfALongQuantumGoEvenly) {
  const auto device = open(kMicPath);
  auto recorder = server_->record(kVirtualMic, server_->folder() / "heard.wav");
  server_->force("clock.force-quantum", 2048);
  WAVEFORMATEXTENSIBLE format;
  ASSERT_EQ(wait_stream(*device, format), error::kNone);
  Transfers transfers(*device, true);
  transfers.move(kRate / 2);
  int close = 0;
  for (int i = 0; i < 50; ++i) {  // 10 ms apart, give or take a piece of 8.5 ms
    const auto before = std::chrono::steady_clock::now();
    std::vector<StereoFrame> ignored = transfers.move(1);
    if (std::chrono::steady_clock::now() - before < std::chrono::milliseconds(1)) ++close;
  }
  EXPECT_LE(close, 10);
}

TEST_F(VirtualPairTest, AClientThatComesLateFindsThreeRecordedTransfersEndedAndTwoPlayedOnes) {
  const auto microphone = open(kMicPath), speaker = open(kSpeakerPath);
  const auto recorder = server_->record(kVirtualMic, server_->folder() / "heard.wav");
  const auto player = server_->play(kVirtualSpeaker, server_->folder().write("music.wav", counting_wav(60 * kRate)));
  WAVEFORMATEXTENSIBLE format;
  ASSERT_EQ(wait_stream(*microphone, format), error::kNone);
  ASSERT_EQ(wait_stream(*speaker, format), error::kNone);
  Transfers recorded(*microphone, true), played(*speaker, false);
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(comes_true([&] { return recorded.ended() >= 3 && played.ended() >= 2; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(recorded.ended(), 3u);
    EXPECT_EQ(played.ended(), 2u);
    EXPECT_GE(recorded.move(kRate / 10).size(), kRate / 10);
    EXPECT_GE(played.move(kRate / 10).size(), kRate / 10);
  }
}

TEST_F(VirtualPairTest, TransfersEndWhenTheApplicationGoes) {
  const auto device = open(kMicPath);
  auto recorder = server_->record(kVirtualMic, server_->folder() / "heard.wav");
  WAVEFORMATEXTENSIBLE format;
  ASSERT_EQ(wait_stream(*device, format), error::kNone);
  recorder.end(2);
  Transfers transfers(*device, true);
  transfers.move(1000 * kRate);
  EXPECT_EQ(transfers.outcome, error::kDeviceNotConnected);
  Overlapped request;
  std::array<std::byte, 6> frame{};
  EXPECT_EQ(device->control(kMove, frame, {}, request), error::kDeviceNotConnected);
}

TEST_F(VirtualPairTest, ARecordingBeginsWithWhatIsTransferredAfterTheOneBefore) {
  const auto device = open(kMicPath);
  const auto record = [&](const char* file, std::size_t count) {
    const std::string wav = server_->folder() / file;
    auto recorder = server_->record(kVirtualMic, wav);
    WAVEFORMATEXTENSIBLE format;
    EXPECT_EQ(wait_stream(*device, format), error::kNone);
    Transfers transfers(*device, true);
    transfers.move(count);
    recorder.end(2);
    transfers.move(1000 * kRate);
    EXPECT_EQ(transfers.outcome, error::kDeviceNotConnected);
    return frames_of_wav(wav);
  };
  ASSERT_FALSE(record("first.wav", kRate / 3).empty());
  const auto heard = record("second.wav", kRate / 10);
  const auto first = std::find_if(heard.begin(), heard.end(), [](const StereoFrame& frame) { return frame[0] != 0; });
  ASSERT_NE(first, heard.end());
  EXPECT_LT((*first)[0], static_cast<int>(kRate / 4)) << "the first recording was beyond it";
}

TEST_F(VirtualPairTest, RequestsEndWithTheServerAndTheDeviceReturnsWithIt) {
  const auto device = open(kMicPath);
  WAVEFORMATEXTENSIBLE format;
  std::thread killer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    server_->kill_server();
  });
  EXPECT_EQ(wait_stream(*device, format), error::kDeviceNotConnected);
  killer.join();
  EXPECT_TRUE(comes_true([&] { return pair_->interfaces(kAudio).empty(); }));
  EXPECT_EQ(wait_stream(*device, format), error::kDeviceNotConnected);
  server_->kill_manager();
  server_->start_server();
  server_->start_manager();
  ASSERT_TRUE(comes_true([&] { return pair_->interfaces(kAudio).size() == 2; }));
  const auto again = open(kMicPath);
  ASSERT_TRUE(comes_true([&] { return default_id(DataFlow::capture) == "notebook.microphone"; }));
  const auto recorder = server_->record(kVirtualMic, server_->folder() / "heard.wav");
  EXPECT_EQ(wait_stream(*again, format), error::kNone);
}

TEST_F(VirtualPairTest, ANodeThatSomebodyDestroysIsMadeAnewAndCanBeRecorded) {
  for (int round = 0; round < 2; ++round) {
    const auto device = open(kMicPath);
    WAVEFORMATEXTENSIBLE format;
    Overlapped request;
    ASSERT_EQ(device->control(kWait, {}, std::as_writable_bytes(std::span(&format, 1)), request), error::kIoPending);
    server_->run({"pw-cli", "destroy", kVirtualMic});
    std::uint32_t transferred = 0;
    ASSERT_TRUE(comes_true([&] { return device->result(request, transferred, false) != error::kIoPending; })) << round;
    EXPECT_EQ(device->result(request, transferred, false), error::kDeviceNotConnected);
    ASSERT_TRUE(comes_true([&] { return pair_->interfaces(kAudio).size() == 2; })) << round;
  }
  const auto again = open(kMicPath);
  const std::string wav = server_->folder() / "heard.wav";
  auto recorder = server_->record(kVirtualMic, wav);
  WAVEFORMATEXTENSIBLE format;
  ASSERT_EQ(wait_stream(*again, format), error::kNone);
  Transfers transfers(*again, true);
  ASSERT_GE(transfers.move(kRate).size(), kRate) << transfers.outcome;
  recorder.end(2);
  EXPECT_GE(longest_run(frames_of_wav(wav)), kOnePiece);
}

TEST_F(VirtualPairTest, CancelledAndClosedRequestsAreAborted) {
  const auto device = open(kSpeakerPath);
  WAVEFORMATEXTENSIBLE format;
  const auto bytes = std::as_writable_bytes(std::span(&format, 1));
  Overlapped first;
  Overlapped second;
  ASSERT_EQ(device->control(kWait, {}, bytes, first), error::kIoPending);
  ASSERT_EQ(device->control(kWait, {}, bytes, second), error::kIoPending);
  device->cancel(first);
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->result(first, transferred, false), error::kOperationAborted);
  EXPECT_EQ(device->result(second, transferred, false), error::kIoPending);
  device->close();
  EXPECT_EQ(device->result(second, transferred, false), error::kOperationAborted);
}

TEST_F(VirtualPairTest, RequestsThatMakeNoSenseAreRefused) {
  const auto device = open(kMicPath);
  std::array<std::byte, 39> short_format{};
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->control_now(kWait, {}, short_format, transferred), error::kInvalidParameter);
  const std::int32_t two = 2;
  EXPECT_EQ(device->control_now(kTrim, std::as_bytes(std::span(&two, 1)), {}, transferred), error::kInvalidParameter);
  EXPECT_EQ(device->control_now(0x80000010, {}, {}, transferred), error::kInvalidFunction);
  const auto recorder = server_->record(kVirtualMic, server_->folder() / "heard.wav");
  WAVEFORMATEXTENSIBLE format;
  ASSERT_EQ(wait_stream(*device, format), error::kNone);
  std::array<std::byte, 7> odd{};
  Overlapped request;
  EXPECT_EQ(device->control(kMove, odd, {}, request), error::kInvalidParameter);
  EXPECT_EQ(device->control(kMove, {}, std::span(odd).first(6), request), error::kInvalidParameter);
}

}  // namespace
}  // namespace sonivo::test
