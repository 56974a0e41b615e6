#include <cstdlib>
#include <filesystem>

#include "audible_bench.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

/// A microphone of the server's own driver of sound cards, behind which there is a file that may be taken away. A
/// device that another program holds fails in the same way, when it is started, with another reason.
class BrokenMicrophoneTest : public AudibleMachineTest {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(device_);
    files_.write("device/sound", std::string(1 << 20, '\0'));
    const std::string card = "pcm.card { type file slave.pcm { type null } file \"/dev/null\" infile \"" +
                             (device_ / "sound").string() + "\" format \"raw\" } ctl.card { type null }\n";
    ::setenv("ALSA_CONFIG_PATH", files_.write("alsa.conf", card).c_str(), 1);
    AudibleMachineTest::SetUp();
    ::unsetenv("ALSA_CONFIG_PATH");
    if (!server_) return;
    server_->run({"pw-cli", "create-node", "adapter",
                  "{ factory.name = api.alsa.pcm.source api.alsa.path = card node.name = card.microphone"
                  " node.description = \"Card Microphone\" media.class = Audio/Source priority.session = 3000"
                  " object.linger = true }"});
    ASSERT_TRUE(comes_true([&] {
      return server_->run({"pw-metadata", "0", "default.audio.source"}).find("card.microphone") != std::string::npos;
    }));
    start_service();
  }
  static constexpr char kCannotBeOpened[] =
      "trouble  The microphone 'Card Microphone' can't be opened: Start error: No such file or directory. End other "
      "programs that use it past PipeWire, or unplug it and plug it in again.\n";

  bool doctor_says(const std::string& line) {
    return comes_true([&] { return sonivo({"doctor"}).has(line); });
  }
  void take_away() { std::filesystem::rename(device_, elsewhere_); }
  void bring_back() { std::filesystem::rename(elsewhere_, device_); }

  const TemporaryFolder files_;
  const std::filesystem::path device_ = files_.path() / "device";
  const std::filesystem::path elsewhere_ = files_.path() / "elsewhere";
};

// The session manager lets a device rest for five seconds after it has failed.
TEST_F(BrokenMicrophoneTest, IsToldUntilItMayBeOpenedAgain) {
  take_away();
  {
    const auto recorder = server_->record("norvell.relay.microphone", folder("nothing.wav"));
    EXPECT_TRUE(doctor_says(kCannotBeOpened));
  }
  bring_back();
  EXPECT_TRUE(doctor_says("ok       The microphone is 'Card Microphone'.\n"));
  const auto recorder = server_->record("norvell.relay.microphone", folder("heard.wav"));
  EXPECT_TRUE(comes_true([&] { return server_->state_of("card.microphone") == "running"; }));
  EXPECT_TRUE(doctor_says("ok       The microphone is 'Card Microphone'.\n"));
}

TEST_F(BrokenMicrophoneTest, IsOpenedAgainOnceItMayBeForAnApplicationThatGoesOnRecording) {
  take_away();
  const auto recorder = record("nothing.wav");
  ASSERT_TRUE(doctor_says(kCannotBeOpened));
  bring_back();
  EXPECT_TRUE(comes_true([&] { return server_->state_of("card.microphone") == "running"; }));
}

// It stays the default, and nobody hears through a microphone that nobody chose.
TEST_F(BrokenMicrophoneTest, IsLeftAtOnceForAnotherThatIsMadeTheDefault) {
  const auto voice = speak_into("notebook.microphone");
  take_away();
  const auto recorder = record("heard.wav");
  ASSERT_TRUE(doctor_says(kCannotBeOpened));
  EXPECT_EQ(longest_piece(heard_since({}, "heard.wav"), Voice::first), 0u);
  const Moment chosen = now("heard.wav");
  server_->set_default("default.configured.audio.source", "notebook.microphone");
  expect_back("another microphone than one that can't be opened", chosen, "heard.wav");
}

}  // namespace
}  // namespace sonivo::test
