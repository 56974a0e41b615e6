#include "platform/linux/pipewire/volume.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <mutex>
#include <optional>
#include <vector>

#include "counting_audio.h"
#include "pipewire_bench.h"
#include "platform/client_status.h"
#include "platform/linux/pipewire/virtual_pair.h"

namespace sonivo::test {
namespace {

constexpr Guid kContext{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

class VolumeLog final : public IAudioEndpointVolumeCallback {
 public:
  Status QueryInterface(const Guid&, void**) override { return kNoInterface; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  Status OnNotify(const AUDIO_VOLUME_NOTIFICATION_DATA* data) override {
    std::scoped_lock lock(mutex_);
    told_.push_back(*data);
    return kOk;
  }
  std::vector<AUDIO_VOLUME_NOTIFICATION_DATA> told() {
    std::scoped_lock lock(mutex_);
    return told_;
  }

 private:
  std::mutex mutex_;
  std::vector<AUDIO_VOLUME_NOTIFICATION_DATA> told_;
};

class PipeWireVolumeTest : public PipeWireTest {
 protected:
  void SetUp() override {
    PipeWireTest::SetUp();
    if (!half_) return;
    ASSERT_EQ(endpoint(DataFlow::capture, "notebook.microphone")->activate_volume(volume_), kOk);
    ASSERT_TRUE(comes_true([&] { return level() == 1.0f; }));
    volume_->register_callback(&log_);
  }
  void TearDown() override {
    if (volume_) volume_->unregister_callback(&log_);
  }
  bool muted() {
    bool value = false;
    EXPECT_EQ(volume_->mute(value), kOk);
    return value;
  }
  float level() {
    float value = -1;
    EXPECT_EQ(volume_->level_scalar(value), kOk);
    return value;
  }
  std::string props() { return server_->run({"pw-cli", "enum-params", "notebook.microphone", "Props"}); }
  void set_by_another(const std::string& props) {
    server_->run({"pw-cli", "set-param", "notebook.microphone", "Props", props});
  }

  std::shared_ptr<EndpointVolume> volume_;
  VolumeLog log_;
};

TEST_F(PipeWireVolumeTest, AMuteReachesTheNodeAndIsToldWithItsContextAlone) {
  ASSERT_EQ(volume_->set_mute(true, &kContext), kOk);
  EXPECT_TRUE(muted());
  ASSERT_TRUE(comes_true([&] { return props().find("Bool true") != std::string::npos; }));
  set_by_another("{ mute: false }");
  ASSERT_TRUE(comes_true([&] { return log_.told().size() >= 2; }));
  const auto told = log_.told();
  ASSERT_EQ(told.size(), 2u);
  EXPECT_EQ(told[0].guidEventContext, kContext);
  EXPECT_TRUE(told[0].bMuted);
  EXPECT_EQ(told[1].guidEventContext, Guid{});
  EXPECT_FALSE(told[1].bMuted);
}

TEST_F(PipeWireVolumeTest, AChangeWithoutAContextIsToldWithNone) {
  ASSERT_EQ(volume_->set_mute(true, nullptr), kOk);
  ASSERT_TRUE(comes_true([&] { return log_.told().size() == 1; }));
  EXPECT_EQ(log_.told()[0].guidEventContext, Guid{});
}

TEST_F(PipeWireVolumeTest, ASetThatChangesNothingIsToldToo) {
  ASSERT_EQ(volume_->set_mute(false, &kContext), kOk);
  ASSERT_TRUE(comes_true([&] { return log_.told().size() == 1; }));
  EXPECT_EQ(log_.told()[0].guidEventContext, kContext);
}

TEST_F(PipeWireVolumeTest, TheLevelIsTheCubeRootOfTheFactor) {
  ASSERT_EQ(volume_->set_level_scalar(0.5f, &kContext), kOk);
  EXPECT_FLOAT_EQ(level(), 0.5f);
  EXPECT_TRUE(comes_true([&] { return props().find("Float 0.125000") != std::string::npos; }));
  set_by_another("{ channelVolumes: [ 0.729, 0.343 ] }");
  EXPECT_TRUE(comes_true([&] { return level() > 0.8999f && level() < 0.9001f; }));
  ASSERT_TRUE(comes_true([&] { return log_.told().size() == 2; }));
  const auto told = log_.told();
  EXPECT_EQ(told[0].guidEventContext, kContext);
  EXPECT_FLOAT_EQ(told[0].fMasterVolume, 0.5f);
  EXPECT_EQ(told[1].guidEventContext, Guid{});
  EXPECT_NEAR(told[1].fMasterVolume, 0.9f, 1e-4f);
}

TEST_F(PipeWireVolumeTest, AnAmplifiedLevelIsAboveOneAndCanBeSetAgain) {
  set_by_another("{ channelVolumes: [ 2.0, 1.0 ] }");
  ASSERT_TRUE(comes_true([&] { return level() > 1; }));
  const float amplified = level();
  EXPECT_FLOAT_EQ(amplified, std::cbrt(2.0f));
  ASSERT_EQ(volume_->set_level_scalar(0.9f, nullptr), kOk);
  ASSERT_TRUE(comes_true([&] { return props().find("Float 0.729") != std::string::npos; }));
  ASSERT_EQ(volume_->set_level_scalar(amplified, nullptr), kOk);
  EXPECT_TRUE(comes_true([&] {
    const std::string text = props();
    return text.find("Float 2.000000") != std::string::npos && text.find("Float 1.000000") != std::string::npos;
  }));
}

TEST_F(PipeWireVolumeTest, ASetLevelKeepsTheBalance) {
  set_by_another("{ channelVolumes: [ 0.8, 0.4 ] }");
  ASSERT_TRUE(comes_true([&] { return level() < 0.95f; }));
  ASSERT_EQ(volume_->set_level_scalar(0.5f, nullptr), kOk);
  EXPECT_TRUE(comes_true([&] {
    const std::string text = props();
    return text.find("Float 0.125000") != std::string::npos && text.find("Float 0.062500") != std::string::npos;
  }));
}

TEST_F(PipeWireVolumeTest, ALevelOutOfRangeIsRefused) {
  EXPECT_EQ(volume_->set_level_scalar(2.3f, nullptr), kInvalidArgument);
  EXPECT_EQ(volume_->set_level_scalar(std::numeric_limits<float>::quiet_NaN(), nullptr), kInvalidArgument);
  EXPECT_EQ(volume_->set_level_scalar(-0.1f, nullptr), kInvalidArgument);
  EXPECT_EQ(level(), 1.0f);
}

TEST_F(PipeWireVolumeTest, AVolumeFailsWhileItsNodeIsAwayAndIsToldAgainAfterwards) {
  server_->kill_server();
  bool value = false;
  ASSERT_TRUE(comes_true([&] { return volume_->mute(value) == kDeviceInvalidated; }));
  EXPECT_EQ(volume_->set_mute(true, &kContext), kDeviceInvalidated);
  EXPECT_TRUE(log_.told().empty());
  server_->kill_manager();
  server_->start_server();
  server_->start_manager();
  ASSERT_TRUE(comes_true([&] { return volume_->set_mute(true, &kContext) == kOk; }));
  ASSERT_TRUE(comes_true([&] { return !log_.told().empty(); }));
  EXPECT_TRUE(log_.told().back().bMuted);
}

/// An application with a microphone of its own.
class OtherMicrophoneTest : public PipeWireVolumeTest {
 protected:
  void SetUp() override {
    PipeWireVolumeTest::SetUp();
    if (!volume_) return;
    application_.push_back(
        server_->start({"pw-play", "--target", "0", "-P", "{ node.name = other.microphone media.class = Audio/Source }",
                        server_->folder().write("silence.wav", counting_wav(60 * 48000))}));
    ASSERT_TRUE(comes_true([&] { return endpoint(DataFlow::capture, "other.microphone") != nullptr; }));
    ASSERT_EQ(endpoint(DataFlow::capture, "other.microphone")->activate_volume(other_), kOk);
    ASSERT_TRUE(comes_true([&] { return set_there(true); }));
    ASSERT_TRUE(comes_true([&] { return set_there(false); }));
  }
  /// Asks the application itself, past the model.
  bool set_there(bool mute) {
    other_->set_mute(mute, nullptr);
    return server_->run({"pw-cli", "enum-params", "other.microphone", "Props"})
               .find(mute ? "Bool true" : "Bool false") != std::string::npos;
  }
  bool other_is_muted() {
    bool value = false;
    EXPECT_EQ(other_->mute(value), kOk);
    return value;
  }
  ChildProcess& application() { return application_.front(); }

  std::shared_ptr<EndpointVolume> other_;

 private:
  std::vector<ChildProcess> application_;
};

TEST_F(OtherMicrophoneTest, AnOwnerThatDoesNotAnswerHoldsNobodyUp) {
  application().send(SIGSTOP);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(other_->set_mute(true, nullptr), kOk);
  ASSERT_EQ(volume_->set_mute(true, nullptr), kOk);
  ASSERT_TRUE(comes_true([&] { return props().find("Bool true") != std::string::npos; }));
  server_->plug_headset();
  ASSERT_TRUE(comes_true([&] { return endpoint(DataFlow::capture, "usb.headset") != nullptr; }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));
}

TEST_F(OtherMicrophoneTest, AVolumeThatIsNotTakenInTwoSecondsIsTheOldOneUntilItIsTakenAfterAll) {
  application().send(SIGSTOP);
  ASSERT_EQ(other_->set_mute(true, &kContext), kOk);
  EXPECT_TRUE(other_is_muted());
  EXPECT_TRUE(comes_true([&] { return !other_is_muted(); }));
  application().send(SIGCONT);
  EXPECT_TRUE(comes_true([&] { return other_is_muted(); }));
}

TEST_F(PipeWireVolumeTest, ACallbackMayCallBack) {
  struct Reader final : IAudioEndpointVolumeCallback {
    Status QueryInterface(const Guid&, void**) override { return kNoInterface; }
    std::uint32_t AddRef() override { return 1; }
    std::uint32_t Release() override { return 1; }
    Status OnNotify(const AUDIO_VOLUME_NOTIFICATION_DATA* data) override {
      if (!data->bMuted) return kOk;
      volume->set_mute(false, &kContext);
      volume->unregister_callback(this);
      done = true;
      return kOk;
    }
    EndpointVolume* volume = nullptr;
    std::atomic<bool> done = false;
  } reader;
  reader.volume = volume_.get();
  ASSERT_EQ(volume_->register_callback(&reader), kOk);
  ASSERT_EQ(volume_->set_mute(true, nullptr), kOk);
  EXPECT_TRUE(comes_true([&] { return reader.done.load(); }));
  EXPECT_FALSE(muted());
}

}  // namespace
}  // namespace sonivo::test
