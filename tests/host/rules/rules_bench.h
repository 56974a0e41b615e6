#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/host_state.h"
#include "platform/window_messages.h"
#include "relay/effect_properties.h"
#include "support/relay_bench.h"
#include "support/temporary_folder.h"

namespace sonivo::test {

using sim::Step;

/// A request as it reached the driver: its code, and the number it carried.
struct Asked {
  std::uint32_t code = 0;
  std::optional<std::uint32_t> number = std::nullopt;

  friend bool operator==(const Asked&, const Asked&) = default;
};

inline void PrintTo(const Asked& asked, std::ostream* out) {
  *out << std::hex << std::uppercase << "0x" << asked.code << std::dec;
  if (asked.number) *out << "(" << *asked.number << ")";
}

/// The host's variables on a simulated notebook with scripted chains, connected to the driver, without the threads and
/// windows of the host.
struct RulesBench {
  explicit RulesBench(Notebook notebook = Notebook::plain, sim::Schedule schedule = sim::Schedule::serial)
      : machine({.schedule = schedule, .folder = folder.path()}) {
    std::filesystem::create_directories(folder.path() / "models");
    std::filesystem::create_directories(folder.path() / "user");
    host.m_szEnhanceModelFolder = folder.path() / "user";
    host.m_AudioControl.SetAISpeechEnhancePmodel(enrolled().c_str());
    set_notebook(notebook);
    driver.InitDriverInfo(control::kControlInterface);
    device.forget_requests();
  }

  void set_notebook(Notebook notebook) {
    host.m_dwGeneration = notebook == Notebook::ai_speech ? 10 : 8;
    host.m_dwGenerationMic = notebook == Notebook::key_cancel     ? 2
                             : notebook == Notebook::beam_forming ? 3
                             : notebook == Notebook::ai_speech    ? 5
                                                                  : 0;
    host.m_FunctionMic = notebook == Notebook::key_cancel     ? 1
                         : notebook == Notebook::beam_forming ? 2
                         : notebook == Notebook::ai_speech    ? 8
                                                              : 0;
    host.m_AudioControl.SetGenAndFunction(host.m_dwGeneration, host.m_Function, host.m_dwGenerationMic,
                                          host.m_FunctionMic);
  }
  /// Parameters for the second and third chain, without which neither opens.
  void store_parameters() {
    machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_BF_KC_Param,
                            std::vector<std::byte>(3 + chains.beam_forming->param_size));
  }
  /// The built-in microphone is the physical one, under this name.
  void use_microphone(const std::string& name) {
    machine.endpoints().rename(sim::kMicArray, name);
    host.m_AudioControl.SetEndpointForce(DataFlow::capture, sim::kMicArray);
  }
  /// An application starts to record; the physical stream opens its chain.
  void record() {
    host.m_AudioControl.Start();
    machine.driver().open_recorder(pcm_format(48000, 16, 2));
    machine.run_for(1);
  }

  std::string enrolled() const { return (folder.path() / "user" / "EnhanceModel.bin").string(); }
  static void make_file(const std::string& path, const std::string& text = "model") { std::ofstream(path) << text; }

  /// A window that shows, in the panel's place.
  void show_panel() {
    Windows& windows = machine.desktop().windows();
    host.m_hWnd = windows.create("panel", {0, 0, 10, 10}, [](const Message&) { return 0; });
    windows.show_at(host.m_hWnd, {0, 0, 10, 10}, Stacking::topmost);
    painted();
  }
  /// Whether the panel was asked to paint itself anew since the last time.
  bool painted() {
    bool paint = false;
    for (Message message; machine.desktop().peek_message(message);) {
      paint = paint || message.message == kWmPaint;
      machine.desktop().dispatch_message(message);
    }
    return paint;
  }

  std::uint64_t now_ms() { return machine.scheduler().tick_ms() - 1'000'000; }

  /// All requests but those of events since the last time.
  std::vector<Asked> asked() {
    std::vector<Asked> all;
    for (const sim::ControlRecord& each : device.requests()) {
      if (each.code == control::NSV_SERVICE_EVENT_NOTIFY || each.code == control::NSV_SERVICE_EVENT_CANCEL) continue;
      if (each.code == control::NSV_PUBLISH_REPORT) continue;
      Asked asked{each.code};
      if (each.input.size() == 4 && each.code != control::GetHeadphone) {
        std::memcpy(&asked.number.emplace(), each.input.data(), 4);
      }
      all.push_back(asked);
    }
    device.forget_requests();
    return all;
  }
  /// The same without the getters.
  std::vector<Asked> written() {
    std::vector<Asked> setters = asked();
    std::erase_if(setters, [](const Asked& each) { return !each.number; });
    return setters;
  }

  /// Code of a request, and whether somebody held the driver lock while it was made.
  using Held = std::vector<std::pair<std::uint32_t, bool>>;
  /// Of the requests that the action leads to, without those of reports; at most 32.
  Held held_during(const std::function<void()>& action) {
    device.forget_requests();
    std::vector<bool> held;
    for (std::uint64_t nth = 1; nth <= 32; ++nth) {
      script.before(Step::control_request, nth, [&] {
        std::thread([&] {  // the lock is free to the thread that has it
          const bool is_free = host.m_csDriver.try_lock();
          if (is_free) host.m_csDriver.unlock();
          held.push_back(!is_free);
        })
            .join();
      });
    }
    action();
    script.clear_faults();
    Held all;
    const auto requests = device.requests();
    for (std::size_t i = 0; i < requests.size(); ++i) {
      if (requests[i].code != control::NSV_PUBLISH_REPORT) all.emplace_back(requests[i].code, held.at(i));
    }
    return all;
  }

  TraceLog log;
  TemporaryFolder folder;
  sim::SimMachine machine;
  ScriptedChains chains;
  std::shared_ptr<HostState> state = std::make_shared<HostState>(machine.seams(), chains.factory());
  HostState& host = *state;
  CSonivoDriverAccess& driver = host.m_DriverAccess;
  sim::ControlDevice& device = machine.driver().control();
  sim::Script& script = machine.script();
};

}  // namespace sonivo::test
