#include "platform/sim/machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

#include "allocation_count.h"
#include "signals.h"

namespace sonivo::sim {
namespace {

constexpr std::uint32_t kTransfer = 0x80000004;

/// Carries the microphone array to the virtual microphone through four outstanding transfers, packet by packet.
class TinyRelay {
 public:
  explicit TinyRelay(SimMachine& machine) : machine_(machine), stop_(machine.scheduler().create(Reset::manual)) {
    thread_ = machine.scheduler().start("relay", [this] { run(); });
  }
  void stop() {
    stop_->set();
    thread_->join();
  }
  /// Allocations of the thread in its latest second.
  std::size_t steady_allocations() const { return steady_allocations_; }

 private:
  struct Slot {
    std::unique_ptr<Event> event;
    std::vector<std::byte> data;
    Overlapped overlapped;
  };

  void run() {
    Error why;
    const auto device =
        machine_.driver().open(SimDriver::device_path(PinId::mic), Sharing::exclusive, Completion::overlapped, why);
    std::vector<std::shared_ptr<Endpoint>> list;
    machine_.endpoints().list(DataFlow::capture, kDeviceActive, list);
    std::unique_ptr<AudioClient> client;
    std::unique_ptr<AudioCaptureClient> service;
    const auto packet_event = machine_.scheduler().create(Reset::automatic);
    list.at(1)->activate_audio_client(client);
    client->initialize(kStreamEventCallback, 100000, 100000, pcm_format(48000, 16, 2));
    client->set_event(packet_event.get());
    client->capture_service(service);
    client->start();

    std::array<Slot, 4> slots;
    for (Slot& slot : slots) {
      slot.event = machine_.scheduler().create(Reset::manual);
      slot.data.resize(1920);
      slot.overlapped.hEvent = slot.event.get();
      device->control(kTransfer, slot.data, {}, slot.overlapped);
    }
    std::vector<std::byte> latest(1920);
    for (std::size_t due = 0, turns = 0;; ++turns) {
      if (turns % 200 == 0) {
        steady_allocations_ = allocation_count() - allocations_before_;
        allocations_before_ = allocation_count();
      }
      Slot& slot = slots[due];
      const std::array<Event*, 3> events{slot.event.get(), packet_event.get(), stop_.get()};
      const auto index = machine_.scheduler().wait_any(events).index;
      if (index == 0u) {
        std::uint32_t transferred = 0;
        device->result(slot.overlapped, transferred, true);
        slot.data = latest;
        device->control(kTransfer, slot.data, {}, slot.overlapped);
        due = (due + 1) % slots.size();
      } else if (index == 1u) {
        const std::byte* data = nullptr;
        std::uint32_t frames = 0, flags = 0;
        service->get_buffer(data, frames, flags);
        latest.assign(data, data + 4 * frames);
        service->release_buffer(frames);
      } else {
        break;
      }
    }
    device->close();
  }

  SimMachine& machine_;
  std::unique_ptr<Event> stop_;
  std::unique_ptr<Thread> thread_;
  std::size_t allocations_before_ = 0;
  std::size_t steady_allocations_ = 0;
};

struct Outcome {
  std::vector<std::byte> recording;
  std::vector<std::string> trace;
};

Outcome relay_for(std::uint32_t ms, Schedule schedule, std::uint64_t jitter_seed) {
  SimMachine machine({.schedule = schedule, .pins = {.drift_ppm = 100}});
  machine.scheduler().set_jitter(jitter_seed);
  machine.script().start_trace();
  machine.endpoint(kMicArray).set_source(counting_source(1));
  machine.driver().open_recorder(pcm_format(48000, 16, 2));
  Outcome outcome;
  {
    TinyRelay relay(machine);
    machine.run_for(ms);
    outcome.recording = machine.driver().recording();
    outcome.trace = machine.script().trace();
    relay.stop();
  }
  EXPECT_EQ(machine.leaks(), Leaks{});
  return outcome;
}

TEST(SimMachine, TheSameScriptGivesTheSameBytesAndTheSameTraceWhateverTheThreadsSuffer) {
  const Outcome calm = relay_for(300, Schedule::serial, 0);
  EXPECT_GT(calm.recording.size(), 29u * 1920u);
  EXPECT_GT(calm.trace.size(), 29u * 6u) << "two waits and four calls a period";
  for (const std::uint64_t seed : {1u, 2u}) {
    const Outcome shaken = relay_for(300, Schedule::serial, seed);
    EXPECT_EQ(shaken.recording, calm.recording);
    EXPECT_EQ(shaken.trace, calm.trace);
  }
}

TEST(SimMachine, RunningFreelyKeepsTheClocksAndDeliversEveryPeriod) {
  const Outcome outcome = relay_for(300, Schedule::free, 3);
  // 300 ms at 48000 * (1 + 100e-6) Hz are 14401.44 frames: 30 whole periods.
  EXPECT_EQ(outcome.recording.size(), 30u * 1920u);
}

#ifndef SONIVO_TSAN
TEST(SimMachine, AStreamThatRunsAllocatesNothing) {
  const std::size_t before = allocation_count();
  const std::vector<int> one(1);
  ASSERT_EQ(allocation_count() - before, 1u) << "the count works";
  SimMachine machine;
  machine.driver().open_recorder(pcm_format(48000, 16, 2), [](std::span<const std::byte>) {});
  TinyRelay relay(machine);
  machine.run_for(5000);
  EXPECT_EQ(relay.steady_allocations(), 0u);
  relay.stop();
}
#endif

TEST(SimMachine, LeaksTellWhatIsStillHeld) {
  SimMachine machine({.echo_filter = true});
  EXPECT_EQ(machine.leaks(), Leaks{});
  Error why;
  auto device =
      machine.driver().open(SimDriver::device_path(PinId::mic), Sharing::exclusive, Completion::overlapped, why);
  auto filter = machine.driver().open(kEchoFilterPath, Sharing::shared, Completion::overlapped, why);
  auto notice = machine.driver().notify_removal({kDeviceTypeHandle, device.get()}, WindowHandle::none);
  auto thread = machine.scheduler().start("idle", [&] { machine.scheduler().sleep_ms(10); });
  auto event = machine.scheduler().create(Reset::manual);
  std::vector<std::byte> format(40);
  Overlapped request;
  device->control(0x80000000, {}, format, request);
  Leaks expected;
  expected.device_handles = 1;
  expected.filter_handles = 1;
  expected.removal_notices = 1;
  expected.pending_requests = 1;
  expected.threads = 1;
  expected.events = 1;
  EXPECT_EQ(machine.leaks(), expected);
  thread->join();
  notice.reset();
  device.reset();
  filter.reset();
  event.reset();
  EXPECT_EQ(machine.leaks(), Leaks{});
}

TEST(SimMachine, ActionsRunLaterOnTheSystemThread) {
  SimMachine machine;
  std::uint64_t ran_at = 0;
  machine.after(40, [&] { ran_at = machine.scheduler().tick_ms(); });
  machine.run_for(100);
  EXPECT_EQ(ran_at, 1'000'040u);
}

TEST(SimMachine, TheDesktopKeepsWhatIsPosted) {
  SimMachine machine;
  machine.run_for(7);
  machine.seams().desktop.post_message(WindowHandle{3}, 0x8001, 1);
  const auto messages = machine.desktop().messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].time, 1'000'007 * kMillisecond);
  EXPECT_EQ(messages[0].window, WindowHandle{3});
  EXPECT_EQ(messages[0].message, 0x8001u);
  EXPECT_EQ(messages[0].wParam, 1u);
}

TEST(SimMachine, TheSessionIsOnTheConsoleUnlessSetOtherwise) {
  SimMachine machine;
  std::uint32_t session = 0;
  EXPECT_TRUE(machine.session().process_session(session));
  EXPECT_EQ(session, machine.session().console_session());
  machine.session().set_console_session(5);
  EXPECT_EQ(machine.session().console_session(), 5u);
  EXPECT_EQ(session, 1u);
  machine.script().fail(Step::process_session, 1);
  EXPECT_FALSE(machine.session().process_session(session));
}

TEST(SimMachine, FoldersLieBelowTheConfiguredOne) {
  SimMachine machine({.folder = "/some/where"});
  EXPECT_EQ(machine.seams().folders.system_model_folder(), "/some/where/models");
  EXPECT_EQ(machine.seams().folders.bitmap_folder(), "/some/where/bitmaps");
  EXPECT_EQ(machine.seams().folders.user_data_folder(), "/some/where/user");
}

}  // namespace
}  // namespace sonivo::sim
