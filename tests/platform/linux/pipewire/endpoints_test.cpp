#include "platform/linux/pipewire/endpoints.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "pipewire_bench.h"
#include "platform/linux/pipewire/stream_node.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

constexpr char kMic[] = "notebook.microphone";
constexpr char kHeadsetMic[] = "usb.headset";

class PipeWireEndpointsTest : public PipeWireTest {
 protected:
  void SetUp() override {
    PipeWireTest::SetUp();
    if (half_) endpoints().register_callback(&notices_);
  }
  void TearDown() override {
    if (half_) endpoints().unregister_callback(&notices_);
  }

  NoticeLog notices_;
};

TEST_F(PipeWireEndpointsTest, SourcesAndSinksAreListedByFlow) {
  EXPECT_THAT(ids(DataFlow::capture), ElementsAre(kMic));
  EXPECT_THAT(ids(DataFlow::render), ElementsAre("notebook.speakers"));
}

TEST_F(PipeWireEndpointsTest, WhoeverWaitsUntilTheyAreKnownWaitsNoLongerThanTheServerIsThere) {
  server_->send(SIGSTOP);
  pipewire::Connection connection(server_->remote());
  pipewire::Dispatcher dispatcher;
  pipewire::Graph graph(connection, dispatcher, {});
  std::atomic<bool> is_over = false;
  std::thread waiting([&] {
    graph.wait_until_known(20'000);
    is_over = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(is_over);
  server_->kill_server();
  EXPECT_TRUE(comes_true([&] { return is_over.load(); }));
  waiting.join();
}

TEST_F(PipeWireEndpointsTest, AnEndpointBearsTheDescriptionOfItsNode) {
  std::unique_ptr<PropertyStore> store;
  ASSERT_EQ(endpoint(DataFlow::capture, kMic)->open_properties(store), kOk);
  PropertyValue value;
  ASSERT_EQ(store->value(PKEY_Device_FriendlyName, value), kOk);
  EXPECT_EQ(std::get<std::string>(value), "Microphone Array (Realtek High Definition Audio)");
  ASSERT_EQ(store->value({}, value), kOk);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(value));
}

TEST_F(PipeWireEndpointsTest, ATableNamesMicrophonesAlone) {
  pipewire::FriendlyNames names;
  ASSERT_EQ(names.add("notebook. = Known\n"), 0);
  endpoints().unregister_callback(&notices_);
  half_ = std::make_unique<AudioHalf>(server_->remote(), names);
  const auto name_of = [&](DataFlow flow, const char* id) {
    const auto device = endpoint(flow, id);
    std::unique_ptr<PropertyStore> store;
    PropertyValue value;
    if (!device || device->open_properties(store) != kOk || store->value(PKEY_Device_FriendlyName, value) != kOk) {
      return std::string();
    }
    return std::get<std::string>(value);
  };
  EXPECT_TRUE(comes_true([&] {
    return name_of(DataFlow::capture, kMic) == "Microphone Array (Realtek High Definition Audio) (Known)" &&
           name_of(DataFlow::render, "notebook.speakers") == "Speakers (Realtek High Definition Audio)";
  }));
}

TEST_F(PipeWireEndpointsTest, ADeviceThatIsPluggedInIsTold) {
  server_->plug_headset();
  EXPECT_TRUE(notices_.has("added usb.headset"));
  EXPECT_TRUE(notices_.has("state usb.headset 1"));
  EXPECT_THAT(ids(DataFlow::capture), UnorderedElementsAre(kMic, kHeadsetMic));
}

TEST_F(PipeWireEndpointsTest, ADeviceThatHasGoneIsRememberedAndWorksAgainWhenItReturns) {
  server_->plug_headset();
  ASSERT_TRUE(notices_.has("state usb.headset 1"));
  const auto headset = endpoint(DataFlow::capture, kHeadsetMic);
  ASSERT_NE(headset, nullptr);
  server_->unplug_headset();
  EXPECT_TRUE(notices_.has("state usb.headset 4"));
  EXPECT_THAT(ids(DataFlow::capture), ElementsAre(kMic));
  EXPECT_THAT(ids(DataFlow::capture, kDeviceNotPresent), ElementsAre(kHeadsetMic));
  std::unique_ptr<AudioClient> client;
  EXPECT_TRUE(failed(headset->activate_audio_client(client)));
  notices_.clear();
  server_->plug_headset();
  EXPECT_TRUE(notices_.has("state usb.headset 1"));
  EXPECT_EQ(headset->activate_audio_client(client), kOk);
}

TEST_F(PipeWireEndpointsTest, AVolumeThatIsActivatedWhileTheDeviceIsAwayWorksWhenItReturns) {
  server_->plug_headset();
  ASSERT_TRUE(notices_.has("state usb.headset 1"));
  const auto headset = endpoint(DataFlow::capture, kHeadsetMic);
  ASSERT_NE(headset, nullptr);
  server_->unplug_headset();
  ASSERT_TRUE(notices_.has("state usb.headset 4"));
  std::shared_ptr<EndpointVolume> volume;
  ASSERT_EQ(headset->activate_volume(volume), kOk);
  EXPECT_TRUE(failed(volume->set_mute(true, nullptr)));
  notices_.clear();
  server_->plug_headset();
  ASSERT_TRUE(notices_.has("state usb.headset 1"));
  EXPECT_EQ(volume->set_mute(true, nullptr), kOk);
  bool muted = false;
  EXPECT_EQ(volume->mute(muted), kOk);
  EXPECT_TRUE(muted);
}

/// A source of another process.
struct PassingSource final : private pipewire::StreamHandler {
  explicit PassingSource(const std::string& name)
      : node({PW_DIRECTION_OUTPUT,
              pcm_format(48000, 16, 2),
              {{PW_KEY_MEDIA_CLASS, "Audio/Source"}, {PW_KEY_NODE_NAME, name}}},
             *this) {}
  void take(const std::byte*, std::uint32_t) override {}
  void fill(std::byte*, std::uint32_t) override {}
  void missed(std::int64_t) override {}
  void state_changed(pw_stream_state) override {}

  pipewire::StreamNode node;
};

TEST_F(PipeWireEndpointsTest, OfDevicesThatAreAwayTheLatest64AreRememberedAndThoseThatSomebodyHolds) {
  pipewire::Connection others(server_->remote());
  std::vector<std::unique_ptr<PassingSource>> sources;
  std::vector<std::string> names;
  for (int i = 0; i < 68; ++i) {
    names.push_back("passing." + std::to_string(i));
    sources.push_back(std::make_unique<PassingSource>(names.back()));
    {
      const pipewire::Connection::Lock lock(others);
      ASSERT_TRUE(sources.back()->node.open(*others.core()));
    }
    ASSERT_TRUE(notices_.has("state " + names.back() + " 1"));
  }
  const auto held = endpoint(DataFlow::capture, names[0]);
  std::shared_ptr<EndpointVolume> volume;
  ASSERT_EQ(endpoint(DataFlow::capture, names[2])->activate_volume(volume), kOk);
  for (std::size_t i = 0; i < sources.size(); ++i) {
    {
      const pipewire::Connection::Lock lock(others);
      sources[i]->node.close();
    }
    ASSERT_TRUE(notices_.has("state " + names[i] + " 4"));
  }
  for (const std::size_t forgotten : {1u, 3u, 4u, 5u}) {
    EXPECT_TRUE(notices_.has("removed " + names[forgotten])) << forgotten;
    names[forgotten].clear();
  }
  std::erase(names, "");
  EXPECT_EQ(ids(DataFlow::capture, kDeviceNotPresent), names);
  EXPECT_THAT(ids(DataFlow::capture), ElementsAre(kMic));
}

TEST_F(PipeWireEndpointsTest, EndpointsAndDefaultsAreKnownFromTheStart) {
  AudioHalf another(server_->remote());
  std::vector<std::shared_ptr<Endpoint>> list;
  EXPECT_EQ(another.endpoints.list(DataFlow::capture, kDeviceActive, list), kOk);
  EXPECT_EQ(list.size(), 1u);
  std::shared_ptr<Endpoint> speakers;
  EXPECT_EQ(another.endpoints.default_endpoint(DataFlow::render, Role::console, speakers), kOk);
}

TEST_F(PipeWireEndpointsTest, ANewDefaultIsToldForEachRole) {
  server_->plug_headset();
  ASSERT_TRUE(notices_.has("state usb.headset 1"));
  server_->set_default("default.configured.audio.source", kHeadsetMic);
  EXPECT_TRUE(notices_.has("default capture 0 usb.headset"));
  EXPECT_TRUE(notices_.has("default capture 1 usb.headset"));
  EXPECT_TRUE(notices_.has("default capture 2 usb.headset"));
  EXPECT_EQ(default_id(DataFlow::capture), kHeadsetMic);
  EXPECT_EQ(default_id(DataFlow::render), "notebook.speakers");
}

TEST_F(PipeWireEndpointsTest, ASinkAsTheDefaultSourceIsNoMicrophone) {
  server_->set_default("default.configured.audio.source", "notebook.speakers");
  EXPECT_TRUE(notices_.has("default capture 0 "));
  EXPECT_EQ(default_id(DataFlow::capture), "");
  EXPECT_NE(server_->run({"pw-metadata", "0", "default.audio.source"}).find("notebook.speakers"), std::string::npos);
}

TEST_F(PipeWireEndpointsTest, ANewDefaultIsNotMissedWhileOthersAskForTheDefaultsToo) {
  server_->plug_headset();
  ASSERT_TRUE(notices_.has("state usb.headset 1"));
  const ChildProcess others = server_->start({"sh", "-c", "while :; do pw-metadata 0; done"});
  for (const char* const wanted : {kHeadsetMic, kMic, kHeadsetMic, kMic, kHeadsetMic, kMic}) {
    server_->set_default("default.configured.audio.source", wanted);
    EXPECT_TRUE(comes_true([&] { return default_id(DataFlow::capture) == wanted; }));
  }
}

TEST_F(PipeWireEndpointsTest, TheDefaultThatIsUnpluggedIsFollowedByTheNextBest) {
  server_->plug_headset();
  server_->set_default("default.configured.audio.source", kHeadsetMic);
  ASSERT_TRUE(notices_.has("default capture 0 usb.headset"));
  server_->unplug_headset();
  EXPECT_TRUE(notices_.has("default capture 0 notebook.microphone"));
}

TEST_F(PipeWireEndpointsTest, AServerThatIsKilledTakesItsEndpointsAlongAndBringsThemBack) {
  server_->kill_server();
  EXPECT_TRUE(notices_.has("state notebook.microphone 4"));
  EXPECT_TRUE(notices_.has("default capture 0 "));
  EXPECT_TRUE(ids(DataFlow::capture).empty());
  server_->kill_manager();
  server_->start_server();
  server_->start_manager();
  EXPECT_TRUE(notices_.has("state notebook.microphone 1"));
  EXPECT_TRUE(notices_.has("default capture 0 notebook.microphone"));
  EXPECT_EQ(default_id(DataFlow::capture), kMic);
}

TEST_F(PipeWireEndpointsTest, WithoutASessionManagerThereIsNoDefaultUntilItIsBack) {
  server_->kill_manager();
  EXPECT_TRUE(notices_.has("default capture 0 "));
  EXPECT_EQ(default_id(DataFlow::capture), "");
  EXPECT_THAT(ids(DataFlow::capture), ElementsAre(kMic));
  server_->start_manager();
  EXPECT_TRUE(notices_.has("default capture 0 notebook.microphone"));
}

TEST_F(PipeWireEndpointsTest, AClientThatIsUnregisteredIsToldNothingMore) {
  endpoints().unregister_callback(&notices_);
  NoticeLog other;
  endpoints().register_callback(&other);
  server_->plug_headset();
  EXPECT_TRUE(other.has("state usb.headset 1"));
  endpoints().unregister_callback(&other);
  endpoints().register_callback(&notices_);
  server_->unplug_headset();
  EXPECT_TRUE(notices_.has("state usb.headset 4"));
  EXPECT_FALSE(testing::Test::HasFailure());
}

}  // namespace
}  // namespace sonivo::test
