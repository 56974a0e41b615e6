#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "own_threads.h"
#include "pipewire_relay_bench.h"

namespace sonivo::test {
namespace {

constexpr long kStallMs = 300;
constexpr std::chrono::seconds kSteady{5};
constexpr std::chrono::seconds kSettled{60};
constexpr std::chrono::seconds kSlippedBack{40};
constexpr int kSlipping = kRate / 10 / 1000 + 3;
constexpr int kSame = static_cast<int>(kRate / 500);
constexpr int kNearlySame = static_cast<int>(kRate / 200);  // a stall of the pacer may leave the speakers 4 ms nearer

/// Keeps a thread of this process from going on for that long, as a machine that is too busy does.
void stall(pid_t thread) {
  struct sigaction action {};
  action.sa_handler = [](int) {
    const timespec wait{.tv_sec = 0, .tv_nsec = kStallMs * 1'000'000};
    ::nanosleep(&wait, nullptr);
  };
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGUSR1, &action, nullptr);
  ::syscall(SYS_tgkill, ::getpid(), thread, SIGUSR1);
}

class PipeWireOverloadTest : public PipeWireRelayTest {
 protected:
  void SetUp() override {
    PipeWireRelayTest::SetUp();
    const sched_param plain{};  // what is read here isn't to be in the way of the recorder
    ASSERT_EQ(::sched_setscheduler(0, SCHED_OTHER, &plain), 0);
  }
  /// Into a file whose left channel hears this port, and the right one that.
  ChildProcess record_both(const std::string& direct, const std::string& relayed) {
    auto recorder = server_->start(
        {"pw-record", "--target", "0", "-P", "{ node.name = both }", "--format", "s16", path("both.wav")});
    link(direct, "both:input_FL");
    link(relayed, "both:input_FR");
    return recorder;
  }
  void link(const std::string& output, const std::string& input) {
    EXPECT_TRUE(comes_true([&] { return server_->run({"pw-link", output, input}).empty(); }));
  }
  /// Frames by which the right channel is later, where that has been nearly the same for a tenth of a second.
  std::optional<int> frames_behind() {
    const std::size_t recorded = std::filesystem::file_size(path("both.wav")) / sizeof(StereoFrame);
    if (recorded < kRate) return std::nullopt;
    const auto frames = frames_of_wav(path("both.wav"), recorded - kRate / 2);
    const auto lag = [&](std::size_t back) {
      const StereoFrame& frame = frames[frames.size() - back];
      return frame[1] > 0 ? (frame[0] - frame[1] + 30000) % 30000 : -1;
    };
    const int behind = lag(1);
    const auto is_same = [&](std::size_t back) { return std::abs(lag(back) - behind) <= kSlipping; };
    return behind > 0 && is_same(kRate / 20) && is_same(kRate / 10) ? std::optional(behind) : std::nullopt;
  }
  /// Stalls the threads of the relay that this direction needs, one after the other. The streams slip back by a frame
  /// in a thousand.
  void expect_the_same_way_after_stalls(const std::string& relay_thread, int same) {
    std::optional<int> before;
    const auto has_settled = [&] {
      const auto earlier = frames_behind();
      std::this_thread::sleep_for(kSteady);
      before = frames_behind();
      return earlier && before && std::abs(*before - *earlier) <= kSlipping;
    };
    ASSERT_TRUE(comes_true(has_settled, kSettled));
    const std::string unnamed = own_threads()[::getpid()];  // PipeWire's data thread is one of those
    for (const std::string& name : {relay_thread, std::string("audio pacer"), unnamed}) {
      auto threads = own_threads_called(name);
      std::erase(threads, ::getpid());
      ASSERT_FALSE(threads.empty()) << name;
      for (int i = 0; i < 3; ++i) {
        for (const pid_t thread : threads) stall(thread);
        std::this_thread::sleep_for(std::chrono::milliseconds(2 * kStallMs));
      }
      std::optional<int> after;
      const auto is_back = [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        after = frames_behind();
        return after && std::abs(*after - *before) <= same;
      };
      EXPECT_TRUE(comes_true(is_back, kSlippedBack)) << name << ": " << *before << " frames, " << after.value_or(-1);
    }
  }
};

TEST_F(PipeWireOverloadTest, TheWayFromTheMicrophoneIsAsLongAfterAnOverloadAsBefore) {
  server_->force("clock.force-quantum", 256);
  const auto voice = server_->speak_into("notebook.microphone", counting(240));
  const auto recorder = record_both("notebook.microphone:capture_FL", std::string(kVirtualMic) + ":capture_FL");
  expect_the_same_way_after_stalls("capture", kSame);
}

TEST_F(PipeWireOverloadTest, TheWayToTheSpeakersIsAsLongAfterAnOverloadAsBefore) {
  server_->force("clock.force-quantum", 256);
  const auto player = server_->start({"pw-play", "--target", "0", "-P", "{ node.name = music }", counting(240)});
  link("music:output_FL", std::string(kVirtualSpeaker) + ":playback_FL");
  link("music:output_FR", std::string(kVirtualSpeaker) + ":playback_FR");
  const auto recorder = record_both("music:output_FL", "notebook.speakers:monitor_FL");
  expect_the_same_way_after_stalls("render", kNearlySame);
}

}  // namespace
}  // namespace sonivo::test
