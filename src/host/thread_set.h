#pragma once

#include <memory>

#include "host/host_state.h"

namespace sonivo {

/// The five threads of the host.
class ThreadSet {
 public:
  explicit ThreadSet(HostState& host) : host_(host) {}

  /// Events of the mode threads, where these are to exist.
  void CreateEvents();
  /// At start-up: all that are to exist.
  void Start();
  /// Waits a while for each of those that were told to leave, closes them with their events, and starts new ones.
  void Reboot();
  /// Waits without limit.
  void Finish();

 private:
  void StartDriverThreads();
  std::unique_ptr<Thread> Run(const char* name, std::uint32_t (*routine)(HostState&));
  void CreateEvent(EventPair& events, std::size_t index);
  void CloseEvents(EventPair& events);
  void TellChangeEvents();

  HostState& host_;
  std::unique_ptr<Thread> hThread;
  std::unique_ptr<Thread> hThreadSub;
  std::unique_ptr<Thread> hThreadChange;
  std::unique_ptr<Thread> hThreadRegistryChange;
  std::unique_ptr<Thread> registry_quit_;  // never waited for
};

}  // namespace sonivo
