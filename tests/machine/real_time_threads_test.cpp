#include <gmock/gmock.h>
#include <sched.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "counting_audio.h"
#include "own_machine_bench.h"

namespace sonivo::test {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

constexpr char kRefusal[] = "no real-time scheduling is granted: audio runs at ordinary priority\n";
/// A thread that is given no name bears the process's; PipeWire's data thread is the one there is.
constexpr char kDataThread[] = "NorvellSonivoSe";

/// Names of the threads of a process, but its first one, that are scheduled in real time; "main" for the first.
std::vector<std::string> real_time_threads(pid_t process) {
  std::vector<std::string> names;
  for (const auto& each : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    const pid_t thread = std::stoi(each.path().filename());
    const int policy = ::sched_getscheduler(thread) & ~SCHED_RESET_ON_FORK;
    if (policy != SCHED_RR && policy != SCHED_FIFO) continue;
    std::string& name = names.emplace_back("main");
    if (thread != process) std::getline(std::ifstream(each.path() / "comm"), name);
  }
  return names;
}

bool is_granted_here() {
  bool granted = false;
  std::thread([&] {
    const sched_param priority{.sched_priority = 10};
    granted = ::sched_setscheduler(0, SCHED_RR, &priority) == 0;
  }).join();
  return granted;
}

class RealTimeThreadsTest : public DrivenMachineTest {
 protected:
  ChildProcess record() { return server_->record("norvell.relay.microphone", folder("heard.wav")); }
  ChildProcess play() {
    return server_->play("norvell.relay.speaker", server_->folder().write("music.wav", counting_wav(30 * 48000)));
  }
};

class RealTimeThreadsOf : public RealTimeThreadsTest, public testing::WithParamInterface<const char*> {};

TEST_P(RealTimeThreadsOf, AChainAreThoseThatAudioPasses) {
  if (!is_granted_here()) GTEST_SKIP() << "this machine grants no real-time scheduling";
  const std::string chain = GetParam();
  if (chain != "none") {
    ASSERT_EQ(sonivo({"setup", "--chain", chain}).code, 0);
  }
  start_service();
  const auto become = [&](std::vector<std::string> names) {
    const auto matches = UnorderedElementsAreArray(names);
    comes_true([&] { return testing::Matches(matches)(real_time_threads(service().id())); });
    EXPECT_THAT(real_time_threads(service().id()), matches);
  };
  const std::vector<std::string> at_rest{kDataThread, "audio pacer"};
  become(at_rest);
  {
    const auto recorder = record();
    const auto player = play();
    std::vector<std::string> names{kDataThread, "audio pacer", "capture", "render"};
    if (chain == "ai") names.emplace_back("enhancement");
    become(names);
    ASSERT_TRUE(comes_true([&] { return status().has("\"chain\": \"" + chain + "\""); })) << status().text;
    EXPECT_THAT(real_time_threads(service().id()), UnorderedElementsAreArray(names));
  }
  become(at_rest);
}

INSTANTIATE_TEST_SUITE_P(Chains, RealTimeThreadsOf, testing::Values("none", "keycancel", "beamforming", "ai"));

TEST_F(RealTimeThreadsTest, WhereNobodyGrantsThemAudioPassesAllTheSameAndTheLogSaysItOnce) {
  const auto voice =
      server_->speak_into("notebook.microphone", server_->folder().write("voice.wav", counting_wav(60 * 48000)));
  std::string refuse = "prlimit --rtprio=0";
  if (::geteuid() == 0) refuse += " setpriv --bounding-set -sys_nice --inh-caps -sys_nice";
  const auto service =
      server_->start({"sh", "-c", "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/none exec " + refuse + " \"$0\" 2>\"$1\"",
                      SONIVO_SERVICE_PROGRAM, folder("log")});
  ASSERT_TRUE(comes_true([&] { return !server_->state_of("norvell.relay.microphone").empty(); }));
  const auto recorder = record();
  const auto player = play();
  EXPECT_TRUE(comes_true([&] { return longest_run(frames_of_wav(folder("heard.wav"))) >= kOnePiece; }));
  EXPECT_TRUE(comes_true([&] { return server_->state_of("notebook.speakers") == "running"; }));
  EXPECT_THAT(real_time_threads(service.id()), IsEmpty());
  std::ifstream file(folder("log"));
  const std::string log{std::istreambuf_iterator<char>(file), {}};
  ASSERT_NE(log.find(kRefusal), log.npos) << log;
  EXPECT_EQ(log.find(kRefusal), log.rfind(kRefusal)) << log;
}

}  // namespace
}  // namespace sonivo::test
