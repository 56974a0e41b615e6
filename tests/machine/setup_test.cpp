#include <filesystem>
#include <fstream>
#include <iterator>

#include "own_machine_bench.h"

namespace sonivo::test {
namespace {

class SetupTest : public DrivenMachineTest {
 protected:
  std::string own_table() {
    std::ifstream file(folder("config/sonivo/microphones"));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string setting(const std::string& name) { return sonivo({"settings", "get", name}).text; }
};

const std::string kSetUp = std::string("'") + kNotebookMicrophone + "' is set up for the chain ";

TEST_F(SetupTest, TheBuiltInMicrophoneIsFoundAndItsParametersAreKept) {
  const Told listed_before = sonivo({"setup", "--list"});
  EXPECT_EQ(listed_before.text, std::string(kNotebookMicrophone) +
                                    "\n  notebook.microphone; built in; the default; no parameters\n"
                                    "chain of this machine: none\n");
  const Told told = sonivo({"setup"});
  EXPECT_EQ(told.code, 0);
  EXPECT_EQ(told.text, kSetUp + "keycancel. The service finds it when it starts.\n");
  EXPECT_EQ(sonivo({"setup", "--list"}).text, std::string(kNotebookMicrophone) +
                                                  "\n  notebook.microphone; built in; the default; parameters of all "
                                                  "chains\nchain of this machine: keycancel\n");
  EXPECT_EQ(setting("generation-mic"), "2\n");
  EXPECT_EQ(setting("function-mic"), "1\n");
}

TEST_F(SetupTest, ASecondTimeNothingChanges) {
  ASSERT_EQ(sonivo({"setup", "--chain", "beamforming"}).code, 0);
  const Told again = sonivo({"setup"});
  EXPECT_EQ(again.code, 0);
  EXPECT_EQ(again.text, kSetUp + "beamforming already; nothing has changed.\n");
  EXPECT_TRUE(sonivo({"setup", "--json"}).has("\"changed\": false"));
}

TEST_F(SetupTest, WhatIsKeptOutlivesTheDriver) {
  ASSERT_EQ(sonivo({"setup", "--chain", "ai", "--strength", "0.5"}).code, 0);
  end_driver();
  start_driver();
  EXPECT_TRUE(sonivo({"setup", "--list"}).has("parameters of all chains, strength 0.5"));
  EXPECT_TRUE(sonivo({"setup", "--list", "--json"}).has("\"strength\": 0.5"));
}

TEST_F(SetupTest, WhatWasKeptIsTakenBack) {
  ASSERT_EQ(sonivo({"setup", "--strength", "0.5"}).code, 0);
  EXPECT_EQ(sonivo({"setup", "--remove"}).text, "Nothing is kept with 'notebook.microphone' any more.\n");
  EXPECT_TRUE(sonivo({"setup", "--list"}).has("the default; no parameters\n"));
  const Told again = sonivo({"setup", "--remove"});
  EXPECT_EQ(again.code, 0);
  EXPECT_EQ(again.text, "Nothing is kept with 'notebook.microphone'; nothing has changed.\n");
}

TEST_F(SetupTest, AMicrophoneThatNoTableKnowsIsChosenByNameAndEnteredAsTheArray) {
  server_->plug_headset();
  ASSERT_TRUE(comes_true([&] { return sonivo({"setup", "--list"}).has("usb.headset; no parameters"); }));
  const Told told = sonivo({"setup", "--microphone", "headset mic", "--chain", "beamforming"});
  EXPECT_EQ(told.code, 0) << told.text;
  EXPECT_EQ(told.text,
            "'Headset Microphone' is set up for the chain beamforming. From now on its name counts as that of the "
            "built-in array. The service finds it when it starts.\n");
  EXPECT_EQ(own_table(), "usb.headset = マイク配列 (デジタルマイク向けインテル\n");
  EXPECT_TRUE(sonivo({"setup", "--list"})
                  .has("Headset Microphone (マイク配列 (デジタルマイク向けインテル)\n  usb.headset; built in; "
                       "parameters of all"));
  EXPECT_TRUE(sonivo({"setup", "--microphone", "usb.headset", "--json"}).has("\"changed\": false"));
  server_->unplug_headset();
  ASSERT_TRUE(comes_true([&] { return !sonivo({"setup", "--list"}).has("usb.headset"); }));
  EXPECT_EQ(sonivo({"setup", "--remove", "--microphone", "usb.headset"}).text,
            "Nothing is kept with 'usb.headset' any more.\n");
  EXPECT_EQ(own_table(), "");
}

TEST_F(SetupTest, OtherLinesOfTheUsersTableStay) {
  std::filesystem::create_directories(folder("config/sonivo"));
  std::ofstream(folder("config/sonivo/microphones")) << "# mine\nusb.headset = Other\n";
  server_->plug_headset();
  ASSERT_TRUE(comes_true([&] { return sonivo({"setup", "--list"}).has("Headset Microphone (Other)\n"); }));
  ASSERT_EQ(sonivo({"setup", "--microphone", "usb.headset"}).code, 0);
  EXPECT_EQ(own_table(), "usb.headset = マイク配列 (デジタルマイク向けインテル\n# mine\nusb.headset = Other\n");
  ASSERT_EQ(sonivo({"setup", "--remove", "--microphone", "usb.headset"}).code, 0);
  EXPECT_EQ(own_table(), "# mine\nusb.headset = Other\n");
}

TEST_F(SetupTest, AMicrophoneThatIsNotThereIsRefusedWithThoseThatAre) {
  const Told told = sonivo({"setup", "--microphone", "webcam"});
  EXPECT_EQ(told.code, 1);
  EXPECT_EQ(told.text, std::string("error: no microphone is called 'webcam'; found: '") + kNotebookMicrophone +
                           "' (notebook.microphone)\n");
  EXPECT_EQ(setting("generation-mic"), "0\n");
}

TEST_F(SetupTest, ABlobThatIsNoneChangesNothing) {
  std::ofstream(folder("wrong.bin")) << std::string(15808, 'x');
  const Told told = sonivo({"setup", "--params", folder("wrong.bin")});
  EXPECT_EQ(told.code, 1);
  EXPECT_TRUE(told.has("is damaged or of another version")) << told.text;
  EXPECT_TRUE(sonivo({"setup", "--list"}).has("no parameters\nchain of this machine: none"));
}

TEST_F(SetupTest, WithoutAnAudioServerTheMicrophonesAreUnknown) {
  server_->kill_server();
  const Told told = sonivo({"setup"});
  EXPECT_EQ(told.code, 1);
  EXPECT_EQ(told.text,
            "error: PipeWire is not running, so that the microphones are unknown; start it: systemctl --user start "
            "pipewire wireplumber\n");
}

TEST_F(SetupTest, AServiceThatRunsTakesChangedParametersUpAtOnce) {
  ASSERT_EQ(sonivo({"setup"}).code, 0);
  start_service();
  const auto recorder = server_->record("norvell.relay.microphone", folder("heard.wav"));
  ASSERT_TRUE(comes_true([&] { return status().has("\"chain\": \"keycancel\""); }));
  ASSERT_TRUE(status().has("\"streams\": 1,"));
  const std::string keycancel = std::string(SONIVO_SHARE_FOLDER) + "/par/keycancel.par";
  server_->run({"cp", keycancel, folder("tuned.par")});
  server_->run({"sed", "-i", "s/^paramID = 1$/paramID = 7/", folder("tuned.par")});
  ASSERT_EQ(sonivo({"params", "build", "keycancel", folder("tuned.par"), folder("tuned.bin")}).code, 0);
  EXPECT_EQ(sonivo({"setup", "--params", folder("tuned.bin")}).text,
            kSetUp + "keycancel. The service takes it up at once, or with the next recording.\n");
  EXPECT_TRUE(comes_true([&] { return status().has("\"streams\": 2,"); }));
  EXPECT_TRUE(comes_true([&] { return status().has("\"chain\": \"keycancel\""); }));
}

TEST_F(SetupTest, AServiceThatStartedWithoutParametersIsToBeRestarted) {
  start_service();
  EXPECT_EQ(sonivo({"setup"}).text,
            kSetUp + "keycancel. Restart the service: systemctl --user restart NorvellSonivoService.\n");
}

}  // namespace
}  // namespace sonivo::test
