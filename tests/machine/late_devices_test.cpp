#include <fstream>
#include <iterator>

#include "own_machine_bench.h"

namespace sonivo::test {
namespace {

/// With devices that are the session manager's, as those of a sound card are.
class LateDevicesTest : public WithChains<DrivenMachineTest> {
 protected:
  AudioServer::Devices devices() override { return AudioServer::Devices::of_manager; }
  std::vector<std::string> service_command() override {
    return {"sh", "-c", "exec \"$0\" --verbose 2>\"$1\"", SONIVO_SERVICE_PROGRAM, folder("log")};
  }
  std::string log() {
    std::ifstream file(folder("log"));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  ChildProcess record_with(const std::string& chain) {
    auto recorder = server_->record(kVirtualMic, folder("heard.wav"));
    EXPECT_TRUE(comes_true([&] { return status().has("\"chain\": \"" + chain + "\""); })) << status().text;
    return recorder;
  }
  void expect_heard(const std::string& setting, const std::string& value) {
    const std::size_t before = log().size();
    ASSERT_EQ(sonivo({"settings", "set", setting, value}).code, 0);
    EXPECT_TRUE(comes_true([&] {
      return log().find("[cap] " + setting + " is " + value + "\n", before) != std::string::npos;
    })) << setting;
  }
};

// A session that begins has its service before its devices.
TEST_F(LateDevicesTest, SettingsStayAndReachTheChainOfAMicrophoneThatComesAfterTheService) {
  ASSERT_EQ(sonivo({"setup", "--chain", "beamforming"}).code, 0);
  server_->kill_manager();
  ASSERT_TRUE(comes_true([&] { return server_->state_of("notebook.microphone").empty(); }));
  const auto service = server_->start(service_command());
  ASSERT_TRUE(comes_true([&] { return !server_->state_of(kVirtualMic).empty(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  server_->start_manager();
  const auto recorder = record_with("beamforming");
  EXPECT_EQ(sonivo({"settings", "get", "beamforming"}).text, "on\n");
  expect_heard("beamforming", "off");
  expect_heard("keyboard-cancel", "off");
}

TEST_F(LateDevicesTest, SettingsStayAndGoOnReachingTheChainAfterTheDriverWasKilled) {
  ASSERT_EQ(sonivo({"setup", "--chain", "ai"}).code, 0);
  start_service();
  const auto recorder = record_with("ai");
  expect_heard("keyboard-cancel", "off");
  const std::size_t before = log().size();
  end_driver();
  start_driver();
  ASSERT_TRUE(comes_true([&] { return status().has("\"driver_ready\": true"); }));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_EQ(log().find("[cap] keyboard-cancel is on", before), std::string::npos) << "which nobody wanted";
  expect_heard("speech-enhance", "off");
  expect_heard("keyboard-cancel", "on");
}

TEST_F(LateDevicesTest, SettingsStayWhenTheSessionManagerAndTheServerWereKilled) {
  ASSERT_EQ(sonivo({"setup", "--chain", "beamforming"}).code, 0);
  start_service();
  for (const bool with_server : {false, true}) {
    {
      const auto recorder = record_with("beamforming");
      if (with_server) server_->kill_server();
      server_->kill_manager();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    if (with_server) server_->start_server();
    server_->start_manager();
    wait_for_defaults();
    ASSERT_TRUE(comes_true([&] { return !server_->state_of(kVirtualMic).empty(); }));
    const auto recorder = record_with("beamforming");
    EXPECT_EQ(sonivo({"settings", "get", "beamforming"}).text, "on\n") << with_server;
  }
}

}  // namespace
}  // namespace sonivo::test
