#pragma once

#include <algorithm>
#include <array>
#include <atomic>

#include "base/text.h"
#include "host/threads.h"
#include "rules_bench.h"

namespace sonivo::test {

using Routine = std::uint32_t (*)(HostState&);

/// A host whose third chain is open, with the events of the two registry threads, and a folder of recordings.
class RegistryBench : public RulesBench {
 public:
  explicit RegistryBench(Notebook notebook = Notebook::ai_speech, sim::Schedule schedule = sim::Schedule::serial)
      : RulesBench(notebook, schedule) {
    store_parameters();
    host.m_AudioControl.SetAISpeechEnhanceOpen();
    chains.ai_speech->clear();
    std::filesystem::create_directories(recordings());
    device.set_text(control::GetAispeechenhanceWavFolderMTG, to_utf16(recordings()));
    device.set_text(control::GetAispeechenhanceWavFileMTG, u"声.wav");
    for (EventPair* pair : {&host.m_hRegistryEvent, &host.m_hRegistryEvent_Quit}) {
      pair->Create(machine.seams().events, EventPair::kWork);
      pair->Create(machine.seams().events, EventPair::kStop);
    }
  }
  ~RegistryBench() { stop(); }

 protected:
  /// Runs a thread up to its first wait.
  void start(Routine routine = ChangeRegistryThread) {
    threads_.push_back(machine.scheduler().start("registry", [this, routine] { status = routine(host); }));
    machine.run_for(1);
  }
  void stop() {
    script.clear_faults();
    machine.session().set_console_session(machine.session().own());  // in another one they don't stop
    host.m_hRegistryEvent.Set(EventPair::kStop);
    host.m_hRegistryEvent_Quit.Set(EventPair::kStop);
    join();
  }
  void join() {
    for (const auto& thread : threads_) thread->join();
    threads_.clear();
  }
  /// An effect property changes.
  void touch() {
    machine.fx().set(sim::FxHome::user_store, sim::kMicArray, PKEY_NVC_AI_Strength, std::vector<std::byte>(4));
  }
  /// An effect property changes while the driver has this registration value; the threads do what follows.
  void touch(std::uint32_t registration) {
    set_registration(registration);
    asked();
    touch();
    machine.run_for(1);
  }
  void set_registration(std::uint32_t value) { device.set_number(control::GetAispeechenhanceRegistrationMTG, value); }
  std::uint32_t registration() const { return device.number(control::GetAispeechenhanceRegistrationMTG); }

  std::string recordings() const { return (folder.path() / "recordings").string(); }
  std::string published() const { return recordings() + "/EnhanceModel.bin"; }
  std::string model(const char* name) const { return (folder.path() / "models" / name).string(); }
  bool signalled(const EventPair& pair, std::size_t index) {
    const auto event = pair.Get(index);
    const std::array<Event*, 1> one{event.get()};
    return machine.scheduler().wait_any(one, 0).index.has_value();
  }

  std::atomic<std::uint32_t> status = 77;  ///< of the thread that ended last

 private:
  std::vector<std::unique_ptr<Thread>> threads_;
};

}  // namespace sonivo::test
