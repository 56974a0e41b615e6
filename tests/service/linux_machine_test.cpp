// The host on this machine without any audio, beside the real driver and a mocked logind.

#include "platform/linux/linux_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "../platform/linux/mocked_bus.h"
#include "apps/service/headphone_report.h"
#include "host/entry.h"
#include "platform/control_requests.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/fx_properties.h"
#include "platform/linux/threads.h"
#include "support/driver_process.h"
#include "support/scripted_chains.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

class NoEndpoints final : public Endpoints {
 public:
  Status list(DataFlow, std::uint32_t, std::vector<std::shared_ptr<Endpoint>>& endpoints) override {
    endpoints.clear();
    return kOk;
  }
  Status default_endpoint(DataFlow, Role, std::shared_ptr<Endpoint>&) override {
    return status_from_error(error::kNotFound);
  }
  Status register_callback(IMMNotificationClient*) override { return kOk; }
  Status unregister_callback(IMMNotificationClient*) override { return kOk; }
};

class LinuxMachineTest : public testing::Test {
 protected:
  ~LinuxMachineTest() override { end(); }

  void start() {
    host = std::make_shared<HostState>(machine.seams(), chains.factory());
    service = std::thread([this] { exit_code = RunService(*host); });
  }
  void end() {
    if (!service.joinable()) return;
    machine.end_session();
    service.join();
  }
  static bool becomes(const std::function<bool()>& condition) {
    for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
         std::chrono::steady_clock::now() < end;) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
  }
  bool is_connected() { return host->m_bDriverReady == 1 && host->m_bThreadExit == 0; }
  /// Whether the driver has a report of the service with this in it.
  bool is_reported(const std::string& part) {
    Error why = error::kNone;
    const auto client = bus.open(folder / "driver.sock", Sharing::shared, Completion::synchronous, why);
    std::string text(control::kMaxReportBytes, '\0');
    std::uint32_t bytes = 0;
    return client &&
           client->control_now(control::NSV_READ_REPORT, {}, std::as_writable_bytes(std::span(text)), bytes) ==
               error::kNone &&
           text.find(part) != text.npos;
  }
  bool is_stopping() { return host->m_bThreadExit == 1; }

  TemporaryFolder folder;
  MockedBus bus_of_test;
  MockedLogind logind{bus_of_test};
  DriverProcess driver{folder / "driver.sock", folder / "state"};
  linux::ControlBus bus{folder / "driver.sock"};
  NoEndpoints endpoints;
  linux::ControlFxProperties fx{bus};
  linux::ProcessThreads threads;
  linux::LinuxMachine machine{{bus, endpoints, fx},
                              threads,
                              {.logind = {.address = bus_of_test.address(), .session = "7"},
                               .user_bus = bus_of_test.address(),
                               .folders = {.models = {}, .bitmaps = {}, .user_data = folder.path() / "user"}}};
  ScriptedChains chains;
  std::shared_ptr<HostState> host;
  std::optional<int> exit_code;
  std::thread service;
};

TEST_F(LinuxMachineTest, AServiceWithoutADisplayConnectsAndEndsWhenItsSessionDoes) {
  start();
  EXPECT_TRUE(becomes([this] { return is_connected(); }));
  end();
  EXPECT_EQ(exit_code, 0);
}

TEST_F(LinuxMachineTest, ALockStopsTheHostUntilTheUnlock) {
  start();
  ASSERT_TRUE(becomes([this] { return is_connected(); }));
  logind.ask_session("Lock");
  EXPECT_TRUE(becomes([this] { return is_stopping(); }));
  logind.ask_session("Unlock");
  EXPECT_TRUE(becomes([this] { return is_connected(); }));
}

TEST_F(LinuxMachineTest, TheReportSaysThatTheSessionIsLockedForAsLongAsItIs) {
  HeadphoneReport headphones(threads, folder / "driver.sock");  // whose connection outlasts the host's
  headphones.tell(false);
  start();
  ASSERT_TRUE(becomes([this] { return is_reported("\"pause\":\"none\""); }));
  logind.ask_session("Lock");
  ASSERT_TRUE(becomes([this] { return host->m_DriverAccess.GetDriverSyncHandle() == nullptr; }));
  EXPECT_TRUE(is_reported("\"pause\":\"locked\""));
  logind.ask_session("Unlock");
  EXPECT_TRUE(becomes([this] { return is_reported("\"pause\":\"none\""); }));
}

TEST_F(LinuxMachineTest, ASleepWaitsUntilTheHostHasStoppedAndTheResumeBringsItBack) {
  start();
  ASSERT_TRUE(becomes([this] { return is_connected(); }));
  EXPECT_THAT(logind.inhibitors(), testing::ElementsAre("sleep delay"));
  logind.signal_sleep(true);
  EXPECT_TRUE(logind.becomes_inhibited(false));
  EXPECT_TRUE(is_stopping()) << "before the machine sleeps";
  logind.signal_sleep(false);
  EXPECT_TRUE(becomes([this] { return is_connected(); }));
  EXPECT_TRUE(logind.becomes_inhibited(true));
}

TEST_F(LinuxMachineTest, ASessionInTheBackgroundHasNoConsole) {
  Session& session = machine.seams().session;
  std::uint32_t own = 0;
  ASSERT_TRUE(session.process_session(own));
  EXPECT_EQ(own, 7u);
  EXPECT_EQ(session.console_session(), 7u);
  logind.set("Active", false);
  EXPECT_TRUE(becomes([&] { return session.console_session() == kNoSession; }));
}

}  // namespace
}  // namespace sonivo::test
