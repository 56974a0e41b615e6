// The driver's commands on their whole way: from the real driver to its reader, and to what the service does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>
#include <thread>

#include "base/text.h"
#include "platform/linux/clock.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/events.h"
#include "platform/linux/threads.h"
#include "real_driver_bench.h"
#include "support/trace_log.h"

namespace sonivo::test {
namespace {

using testing::Each;
namespace c = control;

class RealDriverCommands : public RealDriver {
 protected:
  /// What has the driver tell these commands, in their order.
  void cause(const std::vector<std::uint32_t>& commands) {
    for (const std::uint32_t command : commands) ASSERT_EQ(cause_one(command), error::kNone) << command;
  }

  TraceLog log;
  std::unique_ptr<DriverProcess> driver = start_driver();

 private:
  Error cause_one(std::uint32_t command) {
    switch (command) {
      case c::NSVDRV_CMD_AUTOMUTE_ON:
        return set(c::SetAutoMuteMTG, 1);
      case c::NSVDRV_CMD_AUTOMUTE_OFF:
        return set(c::SetAutoMuteMTG, 0);
      case c::NSVDRV_CMD_DEV_MIC:
        return set_text(c::SetCaptureEndpointId, sim::kHeadsetMic);
      case c::NSVDRV_CMD_DEV_SPK:
        return set_text(c::SetRenderEndpointId, sim::kHeadphones);
      default:
        return set(c::NSV_SEND_EVENT, command);
    }
  }
  Error set_text(std::uint32_t code, const char* text) {
    control::WireText wire{};
    to_utf16(text).copy(wire.data(), wire.size() - 1);
    return request(code, std::as_bytes(std::span(wire)));
  }
};

// ---- To the reader

/// The events of the real machine, with a count of the waits for them.
class CountedEvents final : public Events {
 public:
  std::unique_ptr<Event> create(Reset reset) override { return events_.create(reset); }
  WaitResult wait_any(std::span<Event* const> events, std::optional<std::uint32_t> limit_ms) override {
    ++waits;
    return events_.wait_any(events, limit_ms);
  }

  std::atomic<int> waits = 0;

 private:
  linux::DescriptorEvents events_;
};

/// A reader of the driver's events on the real machine.
class RealDriverChannel : public RealDriverCommands {
 protected:
  Machine machine() {
    const Machine simulated = notebook.seams();
    return {.clock = clock_,
            .events = events_,
            .threads = threads_,
            .bus = bus_,
            .endpoints = simulated.endpoints,
            .fx_properties = simulated.fx_properties,
            .session = simulated.session,
            .power = simulated.power,
            .desktop = simulated.desktop,
            .processes = simulated.processes,
            .folders = simulated.folders};
  }

  CountedEvents events_;

 private:
  linux::MonotonicClock clock_;
  linux::ProcessThreads threads_;
  linux::ControlBus bus_{socket()};
};

TEST_F(RealDriverChannel, RecordsComeWholeAndInTheirOrder) {
  const std::vector<std::uint32_t> commands{c::kMonitorWake,
                                            c::NSVDRV_CMD_AUTOMUTE_ON,
                                            c::NSVDRV_CMD_AUTOMUTE_OFF,
                                            c::NSVDRV_CMD_DEV_MIC,
                                            c::NSVDRV_CMD_DEV_SPK,
                                            c::kNothing,
                                            c::kPlayerIsOn,
                                            c::kPlayerIsOff};
  CSonivoDriverAccess access(machine());
  ASSERT_NE(access.InitDriverInfo(c::kControlInterface), 0);
  ASSERT_NE(access.SetEventIoControl_Cancel(), 0);  // from here on events are kept for this process
  cause(commands);
  std::vector<std::uint32_t> received;
  for (std::size_t i = 0; i < commands.size(); ++i) {
    c::EventRecord record;
    record.unused.fill(std::byte{0xFF});
    ASSERT_NE(access.SetEventIoControl(&record), 0);
    received.push_back(record.command);
    EXPECT_THAT(record.unused, Each(std::byte{0}));
  }
  EXPECT_EQ(received, commands);
}

TEST_F(RealDriverChannel, TheIdsThatHaveChangedCanBeReadAtTheCommand) {
  CSonivoDriverAccess access(machine());
  ASSERT_NE(access.InitDriverInfo(c::kControlInterface), 0);
  ASSERT_NE(access.SetEventIoControl_Cancel(), 0);
  cause({c::NSVDRV_CMD_DEV_MIC, c::NSVDRV_CMD_DEV_SPK});
  c::EventRecord record;
  ASSERT_NE(access.SetEventIoControl(&record), 0);
  ASSERT_EQ(record.command, c::NSVDRV_CMD_DEV_MIC);
  c::WireText id{};
  std::uint32_t bytes = 0;
  ASSERT_NE(access.GetCaptureEndpointId(id, &bytes), 0);
  EXPECT_EQ(to_utf8({id.data(), bytes / sizeof(char16_t)}), sim::kHeadsetMic);
  ASSERT_NE(access.GetRenderEndpointId(id, &bytes), 0);
  EXPECT_EQ(to_utf8({id.data(), bytes / sizeof(char16_t)}), sim::kHeadphones);
}

TEST_F(RealDriverChannel, TheExitOfTheDriverIsTheLastCommand) {
  CSonivoDriverAccess access(machine());
  ASSERT_NE(access.InitDriverInfo(c::kControlInterface), 0);
  c::EventRecord record;
  record.unused.fill(std::byte{0xFF});
  auto asked = std::async(std::launch::async, [&] { return access.SetEventIoControl(&record); });
  while (events_.waits == 0) std::this_thread::yield();  // its request is sent then
  for (int i = 0; i < 2; ++i) get(c::GetFunction);       // the driver has read all that was sent before the second
  driver->end(SIGTERM);
  ASSERT_NE(asked.get(), 0);
  EXPECT_EQ(record.command, c::NSVPLAY_CMD_EXIT);
  EXPECT_THAT(record.unused, Each(std::byte{0}));
  EXPECT_EQ(access.SetEventIoControl(&record), 0);
}

// ---- To what the service does

/// The service is connected and waits for events.
class RealDriverService : public RealDriverCommands {
 protected:
  RealDriverService() {
    start_service();
    EXPECT_TRUE(wait_until([&] { return ready(); }));
    // What comes before its first request for an event is dropped.
    EXPECT_TRUE(wait_until([&] {
      cause({18});
      return log.has("[MainThread] DEFAULT Command = (18).\n");
    }));
    simulation.run_for(100);
    log.clear();
  }
  ~RealDriverService() override { end_service(); }  // before the driver, whose exit holds it up

  std::string endpoint(DataFlow flow) { return host->m_AudioControl.Stream(flow).EndpointId(); }
  std::uint64_t count(sim::Step step) { return simulation.script().count(step); }
};

TEST_F(RealDriverService, WakesTheDisplay) {
  cause({c::kMonitorWake});
  EXPECT_TRUE(wait_until([&] { return count(sim::Step::power_require_display) != 0; }));
  EXPECT_EQ(count(sim::Step::power_require_display), 1u);
}

TEST_F(RealDriverService, FollowsAutoMute) {
  cause({c::NSVDRV_CMD_AUTOMUTE_ON});
  EXPECT_TRUE(wait_until([&] { return host->m_dwAutoMute == 1; }));
  sim::EndpointModel& microphone = simulation.endpoint(sim::kMicArray);
  microphone.volume().set_mute(true);
  const std::uint64_t hidden = count(sim::Step::window_hide);
  cause({c::NSVDRV_CMD_AUTOMUTE_OFF});
  EXPECT_TRUE(wait_until([&] { return host->m_dwAutoMute == 0 && !microphone.volume().muted(); }));
  EXPECT_EQ(count(sim::Step::window_hide), hidden + 1);
}

TEST_F(RealDriverService, FollowsTheEndpointsEachByItsOwnCommand) {
  ASSERT_EQ(endpoint(DataFlow::capture), sim::kMicArray);
  ASSERT_EQ(endpoint(DataFlow::render), sim::kSpeakers);
  cause({c::NSVDRV_CMD_DEV_MIC});
  EXPECT_TRUE(wait_until([&] { return endpoint(DataFlow::capture) == sim::kHeadsetMic; }));
  EXPECT_EQ(endpoint(DataFlow::render), sim::kSpeakers);
  cause({c::NSVDRV_CMD_DEV_SPK});
  EXPECT_TRUE(wait_until([&] { return endpoint(DataFlow::render) == sim::kHeadphones; }));
}

TEST_F(RealDriverService, KnowsTheCommandThatMeansNothing) {
  cause({c::kNothing, 17, c::kMonitorWake});
  ASSERT_TRUE(wait_until([&] { return count(sim::Step::power_require_display) != 0; }));
  EXPECT_FALSE(log.has("[MainThread] DEFAULT Command = (16).\n"));
  EXPECT_TRUE(log.has("[MainThread] DEFAULT Command = (17).\n"));
}

}  // namespace
}  // namespace sonivo::test
