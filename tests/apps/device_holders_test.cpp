#include "apps/tool/device_holders.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/temporary_folder.h"

namespace sonivo::tool {
namespace {

/// What the kernel tells of the streams of sound cards.
class Cards {
 public:
  void add(const std::string& stream, const std::string& status) const {
    std::filesystem::create_directories(folder_.path() / stream);
    folder_.write(stream + "/status", status);
  }
  void add_owned(const std::string& stream, pid_t thread) const {
    add(stream, "state: RUNNING\nowner_pid   : " + std::to_string(thread) + "\ntrigger_time: 1.2\n");
  }
  const std::filesystem::path& path() const { return folder_.path(); }

 private:
  const test::TemporaryFolder folder_;
};

/// A process of another program, for as long as this lives.
class OtherProgram {
 public:
  OtherProgram() {
    std::string name = "sleep", argument = "1000";
    std::array<char*, 3> words{name.data(), argument.data(), nullptr};
    if (::posix_spawnp(&id_, "sleep", nullptr, nullptr, words.data(), environ) != 0) {
      throw std::runtime_error("no other program");
    }
  }
  ~OtherProgram() {
    ::kill(id_, SIGKILL);
    ::waitpid(id_, nullptr, 0);
  }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;

  pid_t id() const { return id_; }

 private:
  pid_t id_ = 0;
};

/// A thread of this process beside its first one, for as long as this lives.
class OtherThread {
 public:
  ~OtherThread() {
    end_.set_value();
    thread_.join();
  }
  pid_t id() { return id_.get_future().get(); }

 private:
  std::promise<pid_t> id_;
  std::promise<void> end_;
  std::thread thread_{[this] {
    id_.set_value(::gettid());
    end_.get_future().wait();
  }};
};

std::string own_program() {
  std::string name;
  std::getline(std::ifstream("/proc/self/comm"), name);
  return name;
}

TEST(DeviceHolders, AreThoseThatTheKernelTellsOfButTheServer) {
  const test::TemporaryFolder processes;
  const auto thread = [&](const std::string& id, const std::string& process, const std::string& name) {
    std::filesystem::create_directories(processes.path() / id);
    processes.write(id + "/status", "Name:\tx\nTgid:\t" + process + "\n");
    processes.write(id + "/comm", name + "\n");
  };
  const Cards cards;
  cards.add("card0/pcm0p/sub0", "closed\n");
  cards.add_owned("card0/pcm0c/sub0", 12);
  cards.add_owned("card1/pcm0c/sub0", 20);
  cards.add("card1/pcm1c/sub0", "owner_pid   : nobody\n");
  thread("12", "10", "a thread");
  thread("10", "10", "arecord");
  thread("20", "20", "pipewire");
  std::filesystem::create_directory_symlink("card0", cards.path() / "cardPCH");
  const auto holders = device_holders(cards.path(), processes.path());
  ASSERT_EQ(holders.size(), 1u);
  EXPECT_EQ(holders[0].device, "card0/pcm0c");
  EXPECT_EQ(holders[0].program, "arecord");
  EXPECT_EQ(holders[0].process, 10);
  EXPECT_TRUE(device_holders(cards.path() / "none", processes.path()).empty());
}

TEST(DeviceHolders, AreNamedAsTheirProcessesOnThisMachine) {
  const OtherProgram program;
  OtherThread thread;
  const Cards cards;
  cards.add_owned("card0/pcm0c/sub0", program.id());
  cards.add_owned("card0/pcm0p/sub0", thread.id());
  const auto holders = device_holders(cards.path());
  ASSERT_EQ(holders.size(), 2u);
  EXPECT_EQ(holders[0].program, "sleep");
  EXPECT_EQ(holders[0].process, program.id());
  EXPECT_EQ(holders[1].program, own_program());
  EXPECT_EQ(holders[1].process, ::getpid());
}

TEST(DeviceHolders, ThatHaveEndedMeanwhileAreNone) {
  const Cards cards;
  {
    const OtherProgram program;
    cards.add_owned("card0/pcm0c/sub0", program.id());
  }
  EXPECT_TRUE(device_holders(cards.path()).empty());
}

}  // namespace
}  // namespace sonivo::tool
