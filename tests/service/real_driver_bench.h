#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "apps/service/simulated_notebook.h"
#include "base/text.h"
#include "host/entry.h"
#include "other_process.h"
#include "platform/fx_requests.h"
#include "support/driver_process.h"
#include "support/scripted_chains.h"
#include "support/temporary_folder.h"

namespace sonivo::test {

inline double seconds_now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// In place of a number of the driver's.
inline constexpr std::uint32_t kNoAnswer = 0xFFFF;

/// The host on simulated endpoints, in real time, beside the real driver.
class RealDriver : public testing::Test {
 protected:
  /// How long the driver may take to answer.
  static constexpr std::chrono::milliseconds kLimit{500};

  RealDriver() : notebook(socket(), config(), kLimit), simulation(notebook.simulation()) {
    std::filesystem::create_directory(folder.path() / "user");
  }
  ~RealDriver() override { end_service(); }

  std::string socket() const { return folder / "driver.sock"; }
  std::string state() const { return folder / "state"; }
  sim::Config config() const {
    sim::Config config;
    config.schedule = sim::Schedule::free;
    config.folder = folder.path();
    return config;
  }

  std::unique_ptr<DriverProcess> start_driver() {
    auto process = std::make_unique<DriverProcess>(socket(), state());
    wait_until([&] { return !linux::ControlBus(socket()).interfaces(control::kControlInterface).empty(); });
    return process;
  }
  void start_service() {
    host = std::make_shared<HostState>(notebook.seams(), chains.factory());
    service_ = simulation.scheduler().start("service", [this] { RunService(*host); });
  }
  void end_service() {
    if (service_) {
      simulation.session().query_end();
      service_->join();
      service_.reset();
    }
    host.reset();
  }
  /// Lets real time go on, which the simulation follows, until the condition holds; false after a minute.
  bool wait_until(const std::function<bool()>& condition) {
    for (const double end = seconds_now() + 60; seconds_now() < end; simulation.run_for(2)) {
      if (condition()) return true;
    }
    return false;
  }
  bool ready() const { return host->m_bDriverReady == 1 && host->m_DriverAccess.GetDriverHandle() != nullptr; }

  /// A client beside the service.
  Error request(std::uint32_t code, std::span<const std::byte> input) {
    return simulation.scheduler().outside([&] {
      linux::ControlBus bus(socket());
      Error why = error::kNone;
      const auto device = bus.open(socket(), Sharing::shared, Completion::synchronous, why);
      std::uint32_t bytes = 0;
      return device ? device->control_now(code, input, {}, bytes) : why;
    });
  }
  Error set(std::uint32_t code, std::uint32_t value) { return request(code, std::as_bytes(std::span(&value, 1))); }
  std::uint32_t get(std::uint32_t code) {
    return simulation.scheduler().outside([&] {
      linux::ControlBus bus(socket());
      Error why = error::kNone;
      const auto device = bus.open(socket(), Sharing::shared, Completion::synchronous, why);
      std::uint32_t value = kNoAnswer;
      std::uint32_t bytes = 0;
      if (device) device->control_now(code, {}, std::as_writable_bytes(std::span(&value, 1)), bytes);
      return value;
    });
  }
  /// By another process.
  Error set_elsewhere(std::uint32_t code, std::uint32_t value) {
    return simulation.scheduler().outside([&] { return settings.request(code, std::as_bytes(std::span(&value, 1))); });
  }
  void set_effect(const PropertyKey& key, std::uint32_t type, std::span<const std::byte> value) {
    for (const auto home : {control::FxHome::user_store, control::FxHome::effect_store}) {
      control::FxAddress address{.home = home, .pid = key.pid, .fmtid = key.fmtid};
      to_utf16(sim::kMicArray).copy(address.endpoint.data(), control::kTextCharacters - 1);
      std::vector<std::byte> input(sizeof address + sizeof type + value.size());
      std::memcpy(input.data(), &address, sizeof address);
      std::memcpy(input.data() + sizeof address, &type, sizeof type);
      std::copy(value.begin(), value.end(), input.begin() + sizeof address + sizeof type);
      ASSERT_EQ(simulation.scheduler().outside([&] { return settings.request(control::NSV_SET_FX_PROPERTY, input); }),
                error::kNone);
    }
  }
  /// What the service tells of itself; empty when the driver has nothing of it.
  std::string report() {
    return simulation.scheduler().outside([&]() -> std::string {
      linux::ControlBus bus(socket());
      Error why = error::kNone;
      const auto device = bus.open(socket(), Sharing::shared, Completion::synchronous, why);
      if (!device) return {};
      std::string text(control::kMaxReportBytes, '\0');
      std::uint32_t bytes = 0;
      const Error outcome =
          device->control_now(control::NSV_READ_REPORT, {}, std::as_writable_bytes(std::span(text)), bytes);
      return outcome == error::kNone ? text.substr(0, bytes) : std::string();
    });
  }
  void make_key_cancel_machine() {
    ASSERT_EQ(set(control::SetGenerationMic, 2), error::kNone);
    ASSERT_EQ(set(control::SetFunctionMic, 1), error::kNone);
  }

  TemporaryFolder folder;
  OtherProcess settings{socket()};  // before there are threads
  ScriptedChains chains;
  SimulatedNotebook notebook;
  sim::SimMachine& simulation;
  std::shared_ptr<HostState> host;

 private:
  std::unique_ptr<Thread> service_;
};

}  // namespace sonivo::test
