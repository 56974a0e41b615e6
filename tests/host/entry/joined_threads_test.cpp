// Which of its threads the host waits for, for how long, in which order, and what it does without those it never had.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <utility>

#include "host/stopping.h"
#include "host/thread_set.h"
#include "host_bench.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace c = control;

constexpr const char* kNoSubThread = "[Main] hThreadSub != WAIT_OBJECT_0.\n";
constexpr const char* kNoMainThread = "[Main] hThread != WAIT_OBJECT_0.\n";

/// Threads of a machine that note the waits for them, each as "name" or "name limit".
class NotedThreads final : public Threads {
 public:
  explicit NotedThreads(Threads& threads) : threads_(threads) {}

  std::unique_ptr<Thread> start(const char* name, std::function<void()> body) override {
    return std::make_unique<Noted>(waits, name, threads_.start(name, std::move(body)));
  }
  void set_current_priority(Priority priority) override { threads_.set_current_priority(priority); }
  std::uint64_t enter_audio_class() override { return threads_.enter_audio_class(); }
  void leave_audio_class(std::uint64_t token) override { threads_.leave_audio_class(token); }

  std::vector<std::string> waits;

 private:
  class Noted final : public Thread {
   public:
    Noted(std::vector<std::string>& waits, std::string name, std::unique_ptr<Thread> thread)
        : waits_(waits), name_(std::move(name)), thread_(std::move(thread)) {}
    void join() override {
      waits_.push_back(name_);
      thread_->join();
    }
    bool join_for(std::uint32_t limit_ms) override {
      waits_.push_back(name_ + " " + std::to_string(limit_ms));
      return thread_->join_for(limit_ms);
    }

   private:
    std::vector<std::string>& waits_;
    const std::string name_;
    const std::unique_ptr<Thread> thread_;
  };

  Threads& threads_;
};

/// The threads of a host with modes, without its windows and loop.
struct NotedThreadsBench : HostBench {
  NotedThreadsBench() : HostBench(kBeamForming) {
    host = nullptr;
    Machine seams = machine.seams();
    host = std::make_shared<HostState>(
        Machine{seams.clock, seams.events, noted, seams.bus, seams.endpoints, seams.fx_properties, seams.session,
                seams.power, seams.desktop, seams.processes, seams.folders},
        chains.factory());
    host->m_dwGenerationMic = kBeamForming.generation_mic;
    host->m_FunctionMic = kBeamForming.function_mic;
    threads = std::make_unique<ThreadSet>(*host);
    threads->CreateEvents();
    threads->Start();
    run_for(3000);
  }
  ~NotedThreadsBench() {
    stop();
    threads->Finish();
    threads.reset();
    run_for(10);
    host.reset();
  }
  void stop() {
    StopDriverThreads(*host);
    noted.waits.clear();
  }

  NotedThreads noted{machine.scheduler()};
  std::unique_ptr<ThreadSet> threads;
};

TEST(JoinedThreads, OfARebootAreTheFourThatHaveALimit) {
  NotedThreadsBench bench;
  bench.stop();
  bench.threads->Reboot();
  EXPECT_THAT(bench.noted.waits,
              ElementsAre("SubThread 6000", "MainThread 6000", "ChangeThread 6000", "ChangeRegistryThread 6000"));
}

TEST(JoinedThreads, OfTheEndAreTheSameFourWithoutALimit) {
  NotedThreadsBench bench;
  bench.stop();
  bench.threads->Finish();
  EXPECT_THAT(bench.noted.waits, ElementsAre("SubThread", "MainThread", "ChangeThread", "ChangeRegistryThread"));
}

// ---- The one that quits a build

TEST(RebootDuringTheEndOfABuild, LeavesTheThreadThatQuitsItBesideItsSuccessor) {
  HostBench bench(kAISpeech);
  bench.store_parameters();
  bench.chains.ai_speech->during("QuitMakeAIModel", [&] { bench.machine.seams().clock.sleep_ms(20'000); });
  bench.start(1000);
  bench.driver().set_number(c::GetAispeechenhanceRegistrationMTG, 40);
  bench.store_parameters();  // any property of the endpoint
  bench.run_for(100);
  bench.machine.session().lock();
  bench.run_for(1000);
  ASSERT_THAT(bench.threads(), ElementsAre("ChangeRegistryThread_Quit"));
  bench.post_any();
  bench.run_for(100);
  EXPECT_THAT(bench.threads(), ElementsAre("ChangeRegistryThread_Quit", "MainThread", "SubThread", "ChangeThread",
                                           "ChangeRegistryThread", "ChangeRegistryThread_Quit"));
  bench.run_for(20'000);
}

// ---- Threads that the machine refused

struct RefusedThread {
  const char* name;
  std::uint64_t nth;  ///< of MainThread and SubThread
  const char* said;
  const char* not_said;
};
void PrintTo(const RefusedThread& row, std::ostream* out) { *out << row.name; }
class ThreadRefused : public testing::TestWithParam<RefusedThread> {
 protected:
  /// A reboot that finds one of them missing, and brings both.
  static void reboot_into_both(HostBench& bench) {
    bench.log.clear();
    bench.machine.session().lock();
    bench.run_for(1000);
    EXPECT_THAT(bench.threads(), IsEmpty());
    bench.post_any();
    bench.run_for(10);
    EXPECT_EQ(bench.log.count(GetParam().said), 1u);
    EXPECT_FALSE(bench.log.has(GetParam().not_said));
    EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
  }
};

TEST_P(ThreadRefused, AtStartUpIsSaidAtTheNextReboot) {
  constexpr std::uint64_t kOthers = 4;  // the service, reg-notify, render and capture
  HostBench bench;
  bench.machine.script().fail(sim::Step::thread_start, 0, kOthers + GetParam().nth);
  bench.start(1000);
  EXPECT_EQ(bench.threads().size(), 1u);
  reboot_into_both(bench);
}

TEST_P(ThreadRefused, AtAStartThatEndsAgainIsDoneWithout) {
  HostBench bench;
  bench.machine.script().fail(sim::Step::thread_start, 0, 4 + GetParam().nth);
  bench.start(1000);
  bench.end_session();
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_FALSE(bench.log.has(GetParam().said));
}

TEST_P(ThreadRefused, AtARebootIsSaidAtTheNextOne) {
  HostBench bench;
  bench.start(1000);
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.machine.script().fail(sim::Step::thread_start, 0, GetParam().nth);
  bench.post_any();
  bench.run_for(3000);
  EXPECT_FALSE(bench.log.has(GetParam().said));
  EXPECT_EQ(bench.threads().size(), 1u);
  reboot_into_both(bench);
}

INSTANTIATE_TEST_SUITE_P(Threads, ThreadRefused,
                         testing::Values(RefusedThread{"MainThread", 1, kNoMainThread, kNoSubThread},
                                         RefusedThread{"SubThread", 2, kNoSubThread, kNoMainThread}),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace sonivo::test
