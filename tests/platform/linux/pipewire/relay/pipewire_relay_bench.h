#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "counting_audio.h"
#include "pipewire_bench.h"
#include "platform/linux/clock.h"
#include "platform/linux/pipewire/virtual_pair.h"
#include "platform/sim/machine.h"
#include "relay/audio_control.h"
#include "support/scripted_chains.h"

namespace sonivo::test {

class NoOtherDevices final : public DeviceBus {
 public:
  std::vector<DeviceInterface> interfaces(const Guid&) override { return {}; }
  std::shared_ptr<Device> open(const std::string&, Sharing, Completion, Error& why) override {
    why = error::kFileNotFound;
    return nullptr;
  }
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast&, WindowHandle) override { return nullptr; }
  std::unique_ptr<Registration> notify_actions(const Device&, DeviceActionCallback) override { return nullptr; }
};

class OwnConsole final : public Session {
 public:
  bool process_session(std::uint32_t& session) override {
    session = 1;
    return true;
  }
  std::uint32_t console_session() override { return 1; }
  std::unique_ptr<Registration> notify(WindowHandle) override { return nullptr; }
};

class NoFxProperties final : public FxProperties {
 public:
  Status open_user_store(Endpoint&, const Guid&, std::unique_ptr<PropertyStore>&) override { return kFail; }
  Status policy_config(std::unique_ptr<PolicyConfig>&) override { return kFail; }
  Error open_watch(const std::string&, std::unique_ptr<FxWatch>&) override { return error::kFileNotFound; }
};

/// The relay on the audio half of the real machine; its other seams aren't used, or know nothing.
class PipeWireRelayTest : public PipeWireTest {
 protected:
  void SetUp() override {
    PipeWireTest::SetUp();
    if (!half_) return;
    pair_ = std::make_unique<pipewire::VirtualPair>(half_->connection, half_->graph, half_->pacer, no_devices_);
    ASSERT_TRUE(comes_true([&] {
      return endpoint(DataFlow::capture, kVirtualMic) != nullptr &&
             endpoint(DataFlow::render, kVirtualSpeaker) != nullptr;
    }));
    const Machine unused = unused_.seams();
    relay_ = std::make_unique<CAudioControl>(Machine{.clock = clock_,
                                                     .events = half_->events,
                                                     .threads = half_->threads,
                                                     .bus = *pair_,
                                                     .endpoints = half_->endpoints,
                                                     .fx_properties = no_properties_,
                                                     .session = console_,
                                                     .power = unused.power,
                                                     .desktop = unused.desktop,
                                                     .processes = unused.processes,
                                                     .folders = unused.folders},
                                             chains_.factory());
    relay_->SetGenAndFunction(8, 0, 0, 0);
    relay_->SetEndpointForce(DataFlow::capture, {});
    relay_->SetEndpointForce(DataFlow::render, {});
    relay_->Start();
  }
  void TearDown() override {
    if (relay_) relay_->Stop();
    relay_.reset();
  }
  std::string counting(std::size_t seconds) {
    return server_->folder().write("counting.wav", counting_wav(seconds * kRate));
  }
  std::string path(const char* name) { return server_->folder() / name; }
  /// Whether, from now on and within ten seconds, half a second in one piece is heard in this file, or as much as is
  /// wanted; less under a sanitizer.
  bool is_heard_in(const std::string& wav, std::size_t piece = std::min(kRate / 2, 2 * kOnePiece)) {
    const std::size_t before = frames_of_wav(wav).size();
    return comes_true([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      auto frames = frames_of_wav(wav);
      if (frames.size() <= before) return false;
      frames.erase(frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(before));
      return longest_run(frames) >= piece;
    });
  }

  NoOtherDevices no_devices_;
  OwnConsole console_;
  NoFxProperties no_properties_;
  linux::MonotonicClock clock_;
  sim::SimMachine unused_;
  ScriptedChains chains_;
  std::unique_ptr<pipewire::VirtualPair> pair_;
  std::unique_ptr<CAudioControl> relay_;
};

}  // namespace sonivo::test
