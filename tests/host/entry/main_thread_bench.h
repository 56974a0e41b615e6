#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "host/threads.h"
#include "host_bench.h"

namespace sonivo::test {

/// MainThread alone, on a state without windows.
struct MainThreadBench : HostBench {
  explicit MainThreadBench(const Model& model = kPlain, sim::Schedule schedule = sim::Schedule::serial)
      : HostBench(model, schedule) {}
  ~MainThreadBench() { leave(); }

  void open() { ASSERT_NE(host->m_DriverAccess.InitDriverInfo(control::kControlInterface), 0); }
  void start_thread(std::uint32_t ms = 100) {
    thread = machine.scheduler().start("MainThread", [this] { status = MainThread(*host); });
    run_for(ms);
  }
  void leave() {
    if (!thread) return;
    host->m_bThreadExit = 1;
    host->m_DriverAccess.CloseDriverHandles();
    thread->join();
    thread.reset();
  }
  /// An application records from now on.
  void record() {
    host->m_AudioControl.Start();
    machine.driver().open_recorder(pcm_format(48000, 16, 2));
    run_for(1000);
  }
  /// An application plays from now on.
  void play() {
    host->m_AudioControl.Start();
    machine.driver().open_player(pcm_format(48000, 16, 2), sim::memory_source({}));
    run_for(1000);
  }
  std::vector<std::uint32_t> all_codes() {
    std::vector<std::uint32_t> codes;
    for (const sim::ControlRecord& each : driver().requests()) codes.push_back(each.code);
    return codes;
  }
  void send(std::uint32_t command) {
    driver().send_event(command);
    run_for(10);
  }

  std::unique_ptr<Thread> thread;
  std::uint32_t status = 77;
};

}  // namespace sonivo::test
