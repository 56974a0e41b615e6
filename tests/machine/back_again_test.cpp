#include "audible_bench.h"

namespace sonivo::test {
namespace {

constexpr char kHeard[] = "heard.wav";
constexpr char kPlayed[] = "played.wav";

/// Something goes while applications record and play, and comes back. Their audio has to be there again within two
/// seconds of the moment at which the test begins to bring back what was missing.
class BackAgainTest : public AudibleMachineTest {
 protected:
  void make_default_microphone(const std::string& node) {
    server_->set_default("default.configured.audio.source", node);
  }
  void make_default_speakers(const std::string& node) { server_->set_default("default.configured.audio.sink", node); }
  bool is_gone(const std::string& node) {
    return comes_true([&] { return server_->state_of(node).empty(); });
  }
  bool is_there(const std::string& node) {
    return comes_true([&] { return !server_->state_of(node).empty(); });
  }
  /// Unplugs the headset once it is heard, at that moment.
  void lose_headset(Moment& when) {
    {
      const auto voice = speak_into("usb.headset", Voice::second);
      ASSERT_TRUE(is_heard({}, kHeard, Voice::second));
    }
    when = now(kHeard);
    server_->unplug_headset();
  }
  void expect_headset_back(const char* what) {
    const Moment returned = now(kHeard);
    server_->plug_headset();
    const auto voice = speak_into("usb.headset", Voice::second);
    expect_back(what, returned, kHeard, Voice::second);
  }
  /// Whether a stream of the name is linked with a node of the pair.
  bool is_linked(const char* node, const std::string& stream) {
    return comes_true([&] {
      const std::string links = server_->run({"pw-link", "-l", std::string(node)});
      return links.find(stream) != std::string::npos;
    });
  }
};

TEST_F(BackAgainTest, AfterTheDefaultMicrophoneHasChanged) {
  server_->plug_headset();
  const auto voice = speak_into("notebook.microphone");
  const auto other = speak_into("usb.headset", Voice::second);
  start_service();
  const auto recorder = record(kHeard);
  ASSERT_TRUE(is_heard({}, kHeard));
  const Moment to_headset = now(kHeard);
  make_default_microphone("usb.headset");
  expect_back("another default microphone", to_headset, kHeard, Voice::second);
  const Moment to_notebook = now(kHeard);
  make_default_microphone("notebook.microphone");
  expect_back("the former default microphone", to_notebook, kHeard);
}

TEST_F(BackAgainTest, AfterTheDefaultMicrophoneHasGoneAndAfterItHasReturned) {
  server_->plug_headset();
  make_default_microphone("usb.headset");
  const auto voice = speak_into("notebook.microphone");
  start_service();
  const auto recorder = record(kHeard);
  Moment gone;
  ASSERT_NO_FATAL_FAILURE(lose_headset(gone));
  expect_back("a microphone in place of the default", gone, kHeard);
  expect_headset_back("the default microphone that returned");
}

// Turns stay as they are: where they become longer for a moment, an application's stream may fall silent by itself.
TEST_F(BackAgainTest, AfterTheDefaultSpeakersHaveChangedGoneAndReturned) {
  server_->force("clock.force-quantum", 480);
  server_->plug_speakers();
  start_service();
  const auto player = play();
  const auto listener = record_speakers(kPlayed);
  ASSERT_TRUE(is_heard({}, kPlayed));
  {
    const auto other = server_->record("usb.speakers", folder("first.wav"), true);
    const Moment changed{Clock::now()};
    make_default_speakers("usb.speakers");
    expect_back("other default speakers", changed, "first.wav");
  }
  const Moment gone = now(kPlayed);
  server_->unplug_speakers();
  expect_back("speakers in place of the default", gone, kPlayed);
  const Moment returned{Clock::now()};
  server_->plug_speakers();
  const auto other = server_->record("usb.speakers", folder("second.wav"), true);
  expect_back("the default speakers that returned", returned, "second.wav");
}

TEST_F(BackAgainTest, AfterAPinnedMicrophoneHasReturned) {
  server_->plug_headset();
  const auto voice = speak_into("notebook.microphone");
  ASSERT_EQ(sonivo({"settings", "set", "capture-endpoint", "usb.headset"}).code, 0);
  start_service();
  const auto recorder = record(kHeard);
  Moment gone;
  ASSERT_NO_FATAL_FAILURE(lose_headset(gone));
  EXPECT_TRUE(comes_true([&] { return status().has("\"trouble\": \"the microphone can't be opened\""); }));
  EXPECT_EQ(longest_piece(heard_since(gone, kHeard), Voice::first), 0u) << "of the one that nobody chose";
  expect_headset_back("the pinned microphone that returned");
}

// As of a session that begins before its headset is there.
TEST_F(BackAgainTest, APinnedMicrophoneThatComesAfterTheServiceIsHeard) {
  ASSERT_EQ(sonivo({"settings", "set", "capture-endpoint", "usb.headset"}).code, 0);
  start_service();
  const auto recorder = record(kHeard);
  ASSERT_TRUE(comes_true([&] { return status().has("\"trouble\": \"the microphone"); })) << status().text;
  expect_headset_back("a pinned microphone that comes late");
}

/// With devices that are those of the session manager, as a sound card's are.
class BackAgainWithTheManagerTest : public BackAgainTest {
 protected:
  AudioServer::Devices devices() override { return AudioServer::Devices::of_manager; }
};

// The applications live on, and nobody links them but the relay: the devices return with the manager, and with those
// the voice and the listener.
TEST_F(BackAgainWithTheManagerTest, ForApplicationsThatGoOnAfterTheSessionManagerWasKilled) {
  start_service();
  const auto recorder = record(kHeard);
  const auto player = play();
  for (const int away_ms : {0, 500}) {
    const std::string played = std::to_string(away_ms) + kPlayed;
    {
      const auto voice = speak_into("notebook.microphone");
      const auto listener = record_speakers(played);
      ASSERT_TRUE(is_heard(now(kHeard), kHeard));
      ASSERT_TRUE(is_heard({}, played));
    }
    server_->kill_manager();
    ASSERT_TRUE(is_gone("notebook.microphone"));
    ASSERT_TRUE(is_gone("notebook.speakers"));
    std::this_thread::sleep_for(std::chrono::milliseconds(away_ms));
    const Moment start = now(kHeard);
    server_->start_manager();
    ASSERT_TRUE(is_there("notebook.microphone"));
    ASSERT_TRUE(is_there("notebook.speakers"));
    const auto voice = speak_into("notebook.microphone");
    const auto listener = record_speakers("again." + played);
    expect_back("the microphone after a new session manager", start, kHeard);
    expect_back("the speakers after a new session manager", {start.when}, "again." + played);
  }
}

// Applications lose their streams with the server, and open new ones when they see the pair.
TEST_F(BackAgainTest, AfterTheAudioServerAndItsManagerWereKilled) {
  start_service();
  for (const int away_ms : {0, 400, 800}) {  // the relay looks for the pair once a second
    server_->kill_server();
    server_->kill_manager();
    std::this_thread::sleep_for(std::chrono::milliseconds(away_ms));
    const Moment start{Clock::now()};
    server_->start_server();
    server_->start_manager();
    wait_for_defaults();
    ASSERT_TRUE(is_there(kVirtualMic));
    ASSERT_TRUE(is_there(kVirtualSpeaker));
    const std::string heard = std::to_string(away_ms) + kHeard;
    const std::string played = std::to_string(away_ms) + kPlayed;
    const auto recorder = record(heard);
    const auto player = play();
    const auto listener = record_speakers(played);
    const auto voice = speak_into("notebook.microphone");
    expect_back("the microphone after a new server", start, heard);
    expect_back("the speakers after a new server", start, played);
  }
}

TEST_F(BackAgainTest, NothingIsMissingWhileTheDriverIsKilledAndComesBack) {
  const auto voice = speak_into("notebook.microphone");
  start_service();
  const auto recorder = record(kHeard);
  const auto player = play();
  const auto listener = record_speakers(kPlayed);
  ASSERT_TRUE(is_heard({}, kHeard));
  ASSERT_TRUE(is_heard({}, kPlayed));
  const Streams streams = streams_so_far();
  const Moment heard = now(kHeard);
  const Moment played = now(kPlayed);
  end_driver();
  start_driver();
  ASSERT_TRUE(comes_true([&] { return status().has("\"driver_ready\": true"); }));
  EXPECT_TRUE(is_heard(now(kHeard), kHeard));
  EXPECT_TRUE(is_heard(now(kPlayed), kPlayed));
  expect_unbroken("the microphone beside another driver", heard, kHeard);
  expect_unbroken("the speakers beside another driver", played, kPlayed);
  EXPECT_EQ(streams_so_far(), streams);
}

// The session manager moves applications to other devices meanwhile, and back where they follow the default. Turns stay
// as they are: where they become longer for a moment, an application's stream may fall silent by itself.
TEST_F(BackAgainTest, AfterTheServiceWasKilled) {
  server_->force("clock.force-quantum", 480);
  const auto voice = speak_into("notebook.microphone");
  start_service();
  make_default_microphone(kVirtualMic);
  make_default_speakers(kVirtualSpeaker);
  const auto start_application = [&](const char* program, const char* name, const std::string& file) {
    return server_->start({program, "--format", "s16", "-P", std::string("{ node.name = ") + name + " }", file});
  };
  const auto recorder = start_application("pw-record", "call", folder(kHeard));
  const auto player = start_application("pw-play", "music", folder(tone_file(Voice::first)));
  const auto listener = record_speakers(kPlayed);
  ASSERT_TRUE(is_linked(kVirtualMic, "call:input_FL"));
  ASSERT_TRUE(is_linked(kVirtualSpeaker, "music:output_FL"));
  ASSERT_TRUE(is_heard({}, kHeard));
  ASSERT_TRUE(is_heard({}, kPlayed));
  end_service();
  ASSERT_TRUE(is_gone(kVirtualMic));
  ASSERT_TRUE(is_gone(kVirtualSpeaker));
  const Moment start{Clock::now()};
  start_service();
  ASSERT_TRUE(is_linked(kVirtualMic, "call:input_FL"));
  ASSERT_TRUE(is_linked(kVirtualSpeaker, "music:output_FL"));
  expect_back("the microphone of a new service", {start.when, now(kHeard).frame}, kHeard);
  expect_back("the speakers of a new service", {start.when, now(kPlayed).frame}, kPlayed);
}

}  // namespace
}  // namespace sonivo::test
