#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "audio_server.h"

namespace sonivo::test {

inline constexpr char kVirtualMic[] = "norvell.relay.microphone";
inline constexpr char kVirtualSpeaker[] = "norvell.relay.speaker";
inline constexpr char kNotebookMicrophone[] = "Microphone Array (Realtek High Definition Audio)";

/// What a run of a program wrote and answered.
struct Told {
  int code = -1;
  std::string text;

  bool has(const std::string& part) const { return text.find(part) != text.npos; }
};

/// The installed programs beside an audio server of the test's own. Nothing runs but that at first.
class OwnMachineTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = AudioServer::missing_programs(); !missing.empty()) {
      GTEST_SKIP() << "not installed: " << missing;
    }
    server_ = std::make_unique<AudioServer>(devices());
  }

  virtual AudioServer::Devices devices() { return AudioServer::Devices::of_server; }
  virtual std::vector<std::string> service_command() { return {SONIVO_SERVICE_PROGRAM}; }

  void start_driver() {
    driver_.push_back(server_->start({SONIVO_DRIVER_PROGRAM}));
    ASSERT_TRUE(comes_true([&] { return sonivo({"settings", "get", "model"}).code == 0; }));
  }
  void start_service() {
    service_.push_back(server_->start(service_command()));
    ASSERT_TRUE(comes_true([&] { return status().has("\"driver_ready\": true"); }));
    ASSERT_TRUE(comes_true([&] { return !server_->state_of(kVirtualMic).empty(); }));
  }
  void end_service() { service_.clear(); }
  void end_driver() { driver_.clear(); }
  ChildProcess& driver() { return driver_.back(); }
  ChildProcess& service() { return service_.back(); }
  /// Until the session manager has chosen the microphone.
  void wait_for_defaults() {
    ASSERT_TRUE(comes_true([&] {
      return server_->run({"pw-metadata", "0"}).find("notebook.microphone") != std::string::npos;
    }));
  }

  Told sonivo(std::vector<std::string> words) {
    words.insert(words.begin(), {"sh", "-c", "\"$0\" \"$@\" 2>&1; echo $?", SONIVO_PROGRAM});
    std::string text = server_->run(words);
    if (!text.empty()) text.pop_back();
    const std::size_t code = text.rfind('\n') + 1;  // 0 where the code is all
    return {std::atoi(text.c_str() + code), text.substr(0, code)};
  }
  Told status() { return sonivo({"status", "--json"}); }
  std::string folder(const std::string& name) { return server_->folder() / name; }

  std::unique_ptr<AudioServer> server_;

 private:
  std::vector<ChildProcess> driver_;
  std::vector<ChildProcess> service_;
};

/// With the driver, once the session manager has chosen the devices.
class DrivenMachineTest : public OwnMachineTest {
 protected:
  void SetUp() override {
    OwnMachineTest::SetUp();
    if (!server_) return;
    start_driver();
    wait_for_defaults();
  }
};

/// Chains run, which none does in real time under a sanitizer.
template <class Machine>
class WithChains : public Machine {
 protected:
  void SetUp() override {
#if defined(SONIVO_ASAN)
    GTEST_SKIP() << "no chain keeps up with real time under a sanitizer";
#endif
    Machine::SetUp();
  }
};

}  // namespace sonivo::test
