// The programs beside this one: which is ended, which is started.

#include "host/companions.h"

#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kConsole = 3;

class Companions : public ::testing::Test {
 protected:
  Companions() { machine.session().set_console_session(kConsole); }
  /// Id and exit code of each that was ended.
  std::vector<std::pair<std::uint32_t, std::uint32_t>> ended() {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> all;
    for (const sim::TerminatedProcess& each : machine.processes().terminated()) {
      all.emplace_back(each.id, each.exit_code);
    }
    return all;
  }
  void run(std::uint32_t id, const char* name, std::uint32_t session = kConsole) {
    machine.processes().add({id, session, name});
  }

  TraceLog log;
  sim::SimMachine machine;
  const Machine seams = machine.seams();
  sim::Script& script = machine.script();
};

TEST_F(Companions, StoreIsOffEndsTheFirstOfBothNames) {
  run(10, "explorer.exe");
  run(20, "NSVSdkTestV2.exe");
  run(30, "NorvellApp.exe");
  EXPECT_EQ(SonivoStoreIsOff(seams), 1);
  EXPECT_THAT(ended(), ElementsAre(std::pair(20u, 0u)));
  EXPECT_THAT(log.traces(), ElementsAre("[SonivoStoreIsOff] Successful! Program Terminated.\n"));
  EXPECT_EQ(SonivoStoreIsOff(seams), 1) << "one a call";
  EXPECT_THAT(ended(), ElementsAre(std::pair(20u, 0u), std::pair(30u, 0u)));
  EXPECT_EQ(SonivoStoreIsOff(seams), 0);
}

TEST_F(Companions, StoreIsOffPaysNoHeedToCase) {
  run(20, "NORVELLAPP.EXE");
  EXPECT_EQ(SonivoStoreIsOff(seams), 1);
  run(30, "nsvsdktestv2.exe");
  EXPECT_EQ(SonivoStoreIsOff(seams), 1);
  EXPECT_THAT(ended(), ElementsAre(std::pair(20u, 0u), std::pair(30u, 0u)));
}

TEST_F(Companions, StoreIsOffTakesWholeNamesOnly) {
  run(10, "NorvellApp");
  run(20, "NorvellApp.exe.bak");
  run(30, "MyNorvellApp.exe");
  run(40, "NorvellPlayer.exe");
  EXPECT_EQ(SonivoStoreIsOff(seams), 0);
  EXPECT_THAT(ended(), IsEmpty());
  EXPECT_THAT(log.traces(), IsEmpty());
}

TEST_F(Companions, StoreIsOffStaysInTheConsolesSession) {
  run(10, "NorvellApp.exe", kConsole + 1);
  run(20, "NorvellApp.exe");
  EXPECT_EQ(SonivoStoreIsOff(seams), 1);
  EXPECT_THAT(ended(), ElementsAre(std::pair(20u, 0u)));
  EXPECT_EQ(SonivoStoreIsOff(seams), 0);
}

TEST_F(Companions, StoreIsOffSaysWhyThereIsNoList) {
  run(20, "NorvellApp.exe");
  script.fail(Step::processes_list, 0x1F);
  EXPECT_EQ(SonivoStoreIsOff(seams), 0);
  EXPECT_THAT(log.traces(), ElementsAre("[SonivoStoreIsOff] WTSEnumerateProcesses error = 1f.\n"));
}

TEST_F(Companions, StoreIsOffStopsAtAProcessThatCantBeOpened) {
  run(20, "NorvellApp.exe");
  run(30, "NSVSdkTestV2.exe");
  script.fail(Step::process_open, 0x1F);
  EXPECT_EQ(SonivoStoreIsOff(seams), 0);
  EXPECT_THAT(log.traces(), ElementsAre("[SonivoStoreIsOff] OpenProcess error = 1f.\n"));
  EXPECT_THAT(ended(), IsEmpty());
}

TEST_F(Companions, StoreIsOffStopsAtAProcessThatCantBeEnded) {
  run(20, "NorvellApp.exe");
  run(30, "NSVSdkTestV2.exe");
  script.fail(Step::process_terminate, 0x1F);
  EXPECT_EQ(SonivoStoreIsOff(seams), 0);
  EXPECT_THAT(log.traces(), ElementsAre("[SonivoStoreIsOff] TerminateProcess error = 1f.\n"));
  EXPECT_THAT(ended(), IsEmpty());
  EXPECT_EQ(machine.leaks().process_handles, 0u);
}

TEST_F(Companions, PlayerIsOffEndsTheFirstPlayerWithItsIdForExitCode) {
  run(10, "NorvellApp.exe");
  run(20, "norvellplayer.EXE");
  run(30, "NorvellPlayer.exe");
  EXPECT_EQ(EvtPLYCTRL_PlayerIsOff(seams), 0);
  EXPECT_THAT(ended(), ElementsAre(std::pair(20u, 20u)));
  EXPECT_EQ(machine.leaks().process_handles, 0u);
}

TEST_F(Companions, PlayerIsOffFailsWhenThereIsNone) {
  run(10, "NorvellPlayer.exe", kConsole + 1);
  run(20, "NorvellApp.exe");
  EXPECT_EQ(static_cast<std::uint32_t>(EvtPLYCTRL_PlayerIsOff(seams)), 0x80004005u);
  EXPECT_THAT(ended(), IsEmpty());
}

TEST_F(Companions, PlayerIsOffSucceedsOnceAPlayerIsFoundWhateverBecomesOfIt) {
  run(20, "NorvellPlayer.exe");
  run(30, "NorvellPlayer.exe");
  script.fail(Step::process_open, 5);
  EXPECT_EQ(EvtPLYCTRL_PlayerIsOff(seams), 0);
  script.fail(Step::process_terminate, 5);
  EXPECT_EQ(EvtPLYCTRL_PlayerIsOff(seams), 0);
  EXPECT_THAT(ended(), IsEmpty());
}

TEST_F(Companions, PlayerIsOnStartsAHiddenShellAndWaitsForItsEnd) {
  machine.processes().set_run_time(250);
  EXPECT_EQ(EvtPLYCTRL_PlayerIsOn(seams), 0);
  EXPECT_EQ(machine.scheduler().tick_ms(), 1'000'250u);
  const auto started = machine.processes().started();
  ASSERT_EQ(started.size(), 1u);
  EXPECT_EQ(started[0].what.program, "powershell");
  EXPECT_TRUE(started[0].what.hidden);
  ASSERT_FALSE(started[0].what.arguments.empty());
  const std::string& command = started[0].what.arguments.back();
  EXPECT_THAT(command, ::testing::HasSubstr("shell:AppsFolder\\"));
  EXPECT_TRUE(command.ends_with("!App"));
  EXPECT_EQ(machine.leaks().process_handles, 0u);
}

TEST_F(Companions, PlayerIsOnGoesOnAtOnceWhenTheShellCantBeStarted) {
  script.fail(Step::process_start, 2);
  EXPECT_EQ(EvtPLYCTRL_PlayerIsOn(seams), 0);
  EXPECT_EQ(machine.scheduler().tick_ms(), 1'000'000u);
  EXPECT_EQ(machine.leaks().process_handles, 0u);
}

}  // namespace
}  // namespace sonivo::test
