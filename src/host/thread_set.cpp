#include "host/thread_set.h"

#include <utility>

#include "base/trace.h"
#include "host/threads.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kRebootLimitMs = 6000;

/// Waits for a thread and lets go of it, ended or not; false when it hasn't ended, and runs on beside its successor.
bool Leave(std::unique_ptr<Thread>& thread) {
  const bool ended = thread && thread->join_for(kRebootLimitMs);
  thread.reset();
  return ended;
}

void WaitFor(std::unique_ptr<Thread>& thread) {
  if (thread) thread->join();
  thread.reset();
}

}  // namespace

std::unique_ptr<Thread> ThreadSet::Run(const char* name, std::uint32_t (*routine)(HostState&)) {
  return host_.machine.threads.start(name, [host = host_.shared_from_this(), routine] { routine(*host); });
}

void ThreadSet::TellChangeEvents() {
  host_.m_AudioControl.SetHostEvents(host_.m_hEvent.Get(EventPair::kWork).get(),
                                     host_.m_hEvent.Get(EventPair::kStop).get());
}

// The relay never holds an event that may go: one that is replaced is taken from it first.
void ThreadSet::CreateEvent(EventPair& events, std::size_t index) {
  if (&events == &host_.m_hEvent) host_.m_AudioControl.SetHostEvents(nullptr, nullptr);
  events.Create(host_.machine.events, index);
  if (&events == &host_.m_hEvent) TellChangeEvents();
}

void ThreadSet::CloseEvents(EventPair& events) {
  if (&events == &host_.m_hEvent) host_.m_AudioControl.SetHostEvents(nullptr, nullptr);
  events.Close(EventPair::kWork);
  events.Close(EventPair::kStop);
}

void ThreadSet::CreateEvents() {
  if (!host_.GateModeThreads()) return;
  for (EventPair* events : {&host_.m_hEvent, &host_.m_hRegistryEvent, &host_.m_hRegistryEvent_Quit}) {
    CreateEvent(*events, EventPair::kWork);
    CreateEvent(*events, EventPair::kStop);
  }
}

void ThreadSet::StartDriverThreads() {
  host_.m_Pause = Pause::none;
  hThread = Run("MainThread", MainThread);
  hThreadSub = Run("SubThread", SubThread);
}

void ThreadSet::Start() {
  host_.m_bThreadExit = 0;
  StartDriverThreads();
  if (!host_.GateModeThreads()) return;
  hThreadChange = Run("ChangeThread", ChangeThread);
  hThreadRegistryChange = Run("ChangeRegistryThread", ChangeRegistryThread);
  registry_quit_ = Run("ChangeRegistryThread_Quit", ChangeRegistryThread_Quit);
}

void ThreadSet::Reboot() {
  if (!Leave(hThreadSub)) trace(TraceLevel::error, "[Main] hThreadSub != WAIT_OBJECT_0.\n");
  if (!Leave(hThread)) trace(TraceLevel::error, "[Main] hThread != WAIT_OBJECT_0.\n");
  if (host_.GateModeThreads()) {
    if (Leave(hThreadChange)) CloseEvents(host_.m_hEvent);
    if (Leave(hThreadRegistryChange)) {
      CloseEvents(host_.m_hRegistryEvent);
      registry_quit_.reset();
      CloseEvents(host_.m_hRegistryEvent_Quit);
    }
  }
  host_.m_bSonivoServiceLock = 0;
  host_.m_bThreadExit = 0;
  StartDriverThreads();
  if (!host_.GateModeThreads()) return;
  // Each thread before its events: one that looks for them too early ends with its error.
  hThreadChange = Run("ChangeThread", ChangeThread);
  CreateEvent(host_.m_hEvent, EventPair::kWork);
  CreateEvent(host_.m_hEvent, EventPair::kStop);
  hThreadRegistryChange = Run("ChangeRegistryThread", ChangeRegistryThread);
  CreateEvent(host_.m_hRegistryEvent, EventPair::kWork);
  CreateEvent(host_.m_hRegistryEvent, EventPair::kStop);
  registry_quit_ = Run("ChangeRegistryThread_Quit", ChangeRegistryThread_Quit);
  CreateEvent(host_.m_hRegistryEvent_Quit, EventPair::kWork);
  CreateEvent(host_.m_hRegistryEvent_Quit, EventPair::kStop);
}

void ThreadSet::Finish() {
  WaitFor(hThreadSub);
  WaitFor(hThread);
  if (hThreadChange) {
    WaitFor(hThreadChange);
    CloseEvents(host_.m_hEvent);
  }
  if (hThreadRegistryChange) {
    WaitFor(hThreadRegistryChange);
    CloseEvents(host_.m_hRegistryEvent);
    CloseEvents(host_.m_hRegistryEvent_Quit);
  }
}

}  // namespace sonivo
