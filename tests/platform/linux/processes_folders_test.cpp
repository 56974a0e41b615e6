#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/folders.h"
#include "platform/linux/processes.h"
#include "platform/session.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;

class ProcProcessesTest : public testing::Test {
 protected:
  std::vector<ProcessInfo> named(const std::string& name) {
    std::vector<ProcessInfo> list;
    EXPECT_EQ(processes.list(list), error::kNone);
    std::erase_if(list, [&](const ProcessInfo& each) { return each.name != name; });
    return list;
  }
  /// A program of that name that runs until it is ended.
  std::unique_ptr<Process> sleeper(const std::string& name) {
    std::filesystem::copy_file("/bin/sleep", folder / name);
    return processes.start({folder / name, {"1000"}, true}, why);
  }

  TemporaryFolder folder;
  linux::ProcProcesses processes{[](pid_t process) { return static_cast<std::uint32_t>(process) * 2; }};
  Error why = error::kInvalidData;
};

TEST_F(ProcProcessesTest, ProgramsAreListedByTheirFileNamesWithTheirSessions) {
  const auto process = sleeper("SonivoPlayer.exe");
  ASSERT_NE(process, nullptr);
  EXPECT_EQ(why, error::kNone);
  auto list = named("SonivoPlayer.exe");
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].session, list[0].id * 2);
  std::filesystem::remove(folder / "SonivoPlayer.exe");
  EXPECT_EQ(named("SonivoPlayer.exe").size(), 1u) << "it still runs";
  processes.list(list);
  EXPECT_TRUE(std::is_sorted(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.id < b.id; }));
  process->terminate(0);
}

TEST_F(ProcProcessesTest, AnOpenedProcessIsTerminatedAndThenGone) {
  const auto started = sleeper("SonivoEnds");
  const auto list = named("SonivoEnds");
  ASSERT_EQ(list.size(), 1u);
  const auto opened = processes.open(list[0].id, why);
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(why, error::kNone);
  EXPECT_EQ(opened->terminate(9), error::kNone);
  EXPECT_EQ(started->wait(), error::kNone);
  EXPECT_EQ(opened->wait(), error::kNone) << "over already";
  EXPECT_EQ(opened->terminate(0), error::kAccessDenied);
  EXPECT_TRUE(named("SonivoEnds").empty());
  EXPECT_EQ(processes.open(list[0].id, why), nullptr);
  EXPECT_EQ(why, error::kInvalidParameter);
}

TEST_F(ProcProcessesTest, WhatIsStartedGetsItsArgumentsAndNoneOfOurSignalsBlocked) {
  sigset_t blocked, former;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &former);
  const auto process = processes.start(
      {"sh",
       {"-c", "printf '%s' \"$1\" >\"$2\"; kill -TERM $$; echo left >\"$2\"", "sh", "a b", folder / "out"},
       false},
      why);
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
  ASSERT_NE(process, nullptr);
  EXPECT_EQ(process->wait(), error::kNone);
  std::string text;
  std::getline(std::ifstream(folder / "out"), text);
  EXPECT_EQ(text, "a b");
}

TEST_F(ProcProcessesTest, WhatCanNotBeStartedOrOpenedSaysWhy) {
  EXPECT_EQ(processes.start({"/nowhere/program", {}, false}, why), nullptr);
  EXPECT_EQ(why, error::kFileNotFound);
  EXPECT_EQ(processes.start({folder.write("plain", "text"), {}, false}, why), nullptr);
  EXPECT_EQ(why, error::kAccessDenied);
  EXPECT_EQ(processes.open(0x7FFFFFFF, why), nullptr);
  EXPECT_EQ(why, error::kInvalidParameter);
  EXPECT_EQ(processes.open(0, why), nullptr);
  EXPECT_EQ(why, error::kInvalidParameter);
}

TEST_F(ProcProcessesTest, ClosingAHandleLeavesTheProcessAloneAndNoDeadOneBehind) {
  sleeper("SonivoLeft").reset();
  const auto list = named("SonivoLeft");
  ASSERT_EQ(list.size(), 1u);
  const auto opened = processes.open(list[0].id, why);
  opened->terminate(0);
  opened->wait();
  EXPECT_TRUE(named("SonivoLeft").empty());
  EXPECT_EQ(::waitpid(static_cast<pid_t>(list[0].id), nullptr, WNOHANG), -1) << "it has been buried";
}

TEST(ProcProcesses, AProcessWhoseProgramIsHiddenHasTheNameThatItWasStartedBy) {
  if (::geteuid() == 0) GTEST_SKIP() << "nothing is hidden from root";
  linux::ProcProcesses processes([](pid_t) { return kNoSession; });
  std::vector<ProcessInfo> list;
  EXPECT_EQ(processes.list(list), error::kNone);
  EXPECT_TRUE(std::any_of(list.begin(), list.end(), [](const ProcessInfo& each) { return each.id == 1; }));
}

TEST(ProcProcesses, AFolderThatIsNoneIsAnError) {
  linux::ProcProcesses processes([](pid_t) { return kNoSession; }, "/nowhere");
  std::vector<ProcessInfo> list;
  EXPECT_EQ(processes.list(list), error::kFileNotFound);
}

// ---- Folders

/// The environment as it was, afterwards.
class Variable {
 public:
  Variable(const char* name, const std::string& value) : name_(name) {
    if (const char* const former = std::getenv(name)) former_ = former;
    ::setenv(name, value.c_str(), 1);
  }
  ~Variable() { former_ ? ::setenv(name_, former_->c_str(), 1) : ::unsetenv(name_); }

 private:
  const char* const name_;
  std::optional<std::string> former_;
};

TEST(InstalledFolders, LieBesideTheProgramAndInTheUsersHome) {
  const Variable data("XDG_DATA_HOME", "/data/home");
  const Variable home("HOME", "/home/user");
  const auto program = std::filesystem::read_symlink("/proc/self/exe");
  const auto beside = program.parent_path().parent_path() / "share/sonivo";
  auto places = linux::InstalledFolders::places();
  EXPECT_EQ(places.models, beside / "models");
  EXPECT_EQ(places.bitmaps, beside / "bitmaps");
  EXPECT_EQ(places.user_data, "/data/home");
  const Variable relative("XDG_DATA_HOME", "data");
  EXPECT_EQ(linux::InstalledFolders::places().user_data, "/home/user/.local/share");
}

TEST(InstalledFolders, AreMadeForTheirUserAlone) {
  const TemporaryFolder home;
  linux::InstalledFolders folders({.models = "/m", .bitmaps = "/b", .user_data = home.path() / "local/share"});
  EXPECT_EQ(folders.system_model_folder(), "/m");
  EXPECT_EQ(folders.bitmap_folder(), "/b");
  struct stat made {};
  ASSERT_EQ(::stat(folders.user_data_folder().c_str(), &made), 0);
  EXPECT_EQ(made.st_mode & 07777, 0700u);
}

TEST(InstalledFolders, TheUsersTableOfMicrophoneNamesComesBeforeTheMachinesAndTheInstalledOne) {
  const Variable home("HOME", "/home/user");
  const Variable configuration("XDG_CONFIG_HOME", "/config");
  const auto beside = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "share/sonivo";
  EXPECT_EQ(linux::microphone_tables(),
            (std::vector<std::filesystem::path>{"/config/sonivo/microphones", "/etc/sonivo/microphones",
                                                beside / "microphones"}));
  const Variable relative("XDG_CONFIG_HOME", "config");
  EXPECT_EQ(linux::own_microphone_table(), "/home/user/.config/sonivo/microphones");
}

}  // namespace
}  // namespace sonivo::test
