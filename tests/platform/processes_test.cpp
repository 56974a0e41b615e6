#include "platform/sim/processes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/sim/machine.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ProcessesTest : public testing::Test {
 protected:
  std::vector<std::string> names() {
    std::vector<ProcessInfo> list;
    EXPECT_EQ(processes.list(list), error::kNone);
    std::vector<std::string> names;
    for (const ProcessInfo& each : list) names.push_back(each.name);
    return names;
  }
  std::uint64_t now_ms() { return machine.scheduler().tick_ms() - 1'000'000; }

  SimMachine machine;
  SimProcesses& processes = machine.processes();
  Error why = error::kNone;
};

TEST_F(ProcessesTest, TheListHasAllSessionsInTheOrderOfTheirComing) {
  processes.add({40, 2, "player"});
  processes.add({30, 1, "settings"});
  std::vector<ProcessInfo> list{{1, 1, "left over"}};
  EXPECT_EQ(processes.list(list), error::kNone);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].id, 40u);
  EXPECT_EQ(list[0].session, 2u);
  EXPECT_EQ(list[0].name, "player");
  EXPECT_EQ(list[1].id, 30u);
  processes.end(40);
  EXPECT_THAT(names(), ElementsAre("settings"));
}

TEST_F(ProcessesTest, ATerminatedProcessIsGoneWithItsExitCode) {
  processes.add({40, 1, "player"});
  machine.run_for(5);
  const auto process = processes.open(40, why);
  ASSERT_NE(process, nullptr);
  EXPECT_EQ(why, error::kNone);
  EXPECT_EQ(process->terminate(40), error::kNone);
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(processes.terminated(), ElementsAre(TerminatedProcess{1'000'005 * kMillisecond, 40, 40}));
  EXPECT_EQ(process->terminate(0), error::kAccessDenied);
  EXPECT_EQ(processes.open(40, why), nullptr);
  EXPECT_EQ(why, error::kInvalidParameter);
  EXPECT_EQ(processes.terminated().size(), 1u);
}

TEST_F(ProcessesTest, WhatIsStartedRunsInThisSessionForItsTime) {
  machine.session().set_process_session(4);
  processes.set_run_time(250);
  const auto process = processes.start({"/bin/shell", {"-c", "player"}, true}, why);
  ASSERT_NE(process, nullptr);
  std::vector<ProcessInfo> list;
  processes.list(list);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].name, "shell");
  EXPECT_EQ(list[0].session, 4u);
  const auto started = processes.started();
  ASSERT_EQ(started.size(), 1u);
  EXPECT_EQ(started[0].id, list[0].id);
  EXPECT_EQ(started[0].what.program, "/bin/shell");
  EXPECT_THAT(started[0].what.arguments, ElementsAre("-c", "player"));
  EXPECT_TRUE(started[0].what.hidden);
  EXPECT_EQ(process->wait(), error::kNone);
  EXPECT_EQ(now_ms(), 250u);
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_EQ(process->wait(), error::kNone) << "over already";
  EXPECT_EQ(now_ms(), 250u);
}

TEST_F(ProcessesTest, AWaitEndsHoweverTheProcessDoes) {
  processes.set_run_time(std::nullopt);
  const auto ends = processes.start({"ends", {}, false}, why);
  const auto killed = processes.start({"killed", {}, false}, why);
  const std::uint32_t ends_id = processes.started().at(0).id;
  machine.after(30, [&] { processes.end(ends_id); });
  machine.after(50, [&] { killed->terminate(1); });
  ends->wait();
  EXPECT_EQ(now_ms(), 30u);
  killed->wait();
  EXPECT_EQ(now_ms(), 50u);
}

TEST_F(ProcessesTest, ClosingAHandleLeavesTheProcessAlone) {
  processes.add({40, 1, "player"});
  auto opened = processes.open(40, why);
  auto started = processes.start({"shell", {}, false}, why);
  EXPECT_EQ(machine.leaks().process_handles, 2u);
  opened.reset();
  started.reset();
  EXPECT_EQ(machine.leaks().process_handles, 0u);
  EXPECT_THAT(names(), ElementsAre("player", "shell"));
}

TEST_F(ProcessesTest, EveryOperationFailsAsScriptedWithItsReason) {
  Script& script = machine.script();
  processes.add({40, 1, "player"});
  std::vector<ProcessInfo> list;
  script.fail(Step::processes_list, error::kAccessDenied);
  EXPECT_EQ(processes.list(list), error::kAccessDenied);
  script.fail(Step::process_open, error::kAccessDenied);
  EXPECT_EQ(processes.open(40, why), nullptr);
  EXPECT_EQ(why, error::kAccessDenied);
  script.fail(Step::process_start, error::kFileNotFound);
  EXPECT_EQ(processes.start({"shell", {}, false}, why), nullptr);
  EXPECT_EQ(why, error::kFileNotFound);
  EXPECT_THAT(processes.started(), IsEmpty());
  const auto process = processes.open(40, why);
  EXPECT_EQ(why, error::kNone);
  script.fail(Step::process_terminate, error::kAccessDenied);
  EXPECT_EQ(process->terminate(0), error::kAccessDenied);
  script.fail(Step::process_wait, error::kInvalidHandle);
  EXPECT_EQ(process->wait(), error::kInvalidHandle);
  EXPECT_THAT(names(), ElementsAre("player"));
  EXPECT_EQ(machine.leaks().process_handles, 1u);
}

}  // namespace
}  // namespace sonivo::sim
