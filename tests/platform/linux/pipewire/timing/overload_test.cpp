#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "own_threads.h"
#include "pipewire_relay_bench.h"

namespace sonivo::test {
namespace {

constexpr long kStallMs = 300;
constexpr std::chrono::seconds kSettled{15};
constexpr std::chrono::seconds kSlippedBack{25};
constexpr int kSlipping = kRate / 10 / 1000 + 3;
constexpr int kSame = static_cast<int>(kRate / 500);

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
  /// The recorder's left channel hears the microphone itself, the right one what the relay made of it.
  ChildProcess record_both(const std::string& wav) {
    auto recorder =
        server_->start({"pw-record", "--target", "0", "-P", "{ node.name = both }", "--format", "s16", wav});
    const auto link = [&](const std::string& output, const std::string& input) {
      return comes_true([&] { return server_->run({"pw-link", output, input}).empty(); });
    };
    EXPECT_TRUE(link("notebook.microphone:capture_FL", "both:input_FL"));
    EXPECT_TRUE(link(std::string(kVirtualMic) + ":capture_FL", "both:input_FR"));
    return recorder;
  }
  /// Frames by which the right channel is later, once it has stayed nearly the same for a tenth of a second.
  int frames_behind(const std::string& wav) {
    int behind = -1;
    EXPECT_TRUE(comes_true([&] {
      const auto frames = frames_of_wav(wav);
      if (frames.size() < kRate) return false;
      const auto lag = [&](std::size_t back) {
        const StereoFrame& frame = frames[frames.size() - back];
        return frame[1] > 0 ? (frame[0] - frame[1] + 30000) % 30000 : -1;
      };
      behind = lag(1);
      const auto is_same = [&](std::size_t back) { return std::abs(lag(back) - behind) <= kSlipping; };
      return behind > 0 && is_same(kRate / 20) && is_same(kRate / 10);
    }));
    return behind;
  }
};

// The streams slip back by a frame in a thousand.
TEST_F(PipeWireOverloadTest, TheWayThroughTheRelayIsAsLongAfterAnOverloadAsBefore) {
  server_->force("clock.force-quantum", 256);
  const auto voice = server_->speak_into("notebook.microphone", counting(240));
  const auto recorder = record_both(path("both.wav"));
  std::this_thread::sleep_for(kSettled);
  const int before = frames_behind(path("both.wav"));
  const std::string unnamed = own_threads()[::getpid()];  // PipeWire's data thread is one of those
  for (const std::string name : {"capture", "audio pacer", unnamed.c_str()}) {
    auto threads = own_threads_called(name);
    std::erase(threads, ::getpid());
    ASSERT_FALSE(threads.empty()) << name;
    for (int i = 0; i < 3; ++i) {
      for (const pid_t thread : threads) stall(thread);
      std::this_thread::sleep_for(std::chrono::milliseconds(2 * kStallMs));
    }
    const auto is_back = [&] {
      std::this_thread::sleep_for(std::chrono::seconds(1));
      const int after = frames_behind(path("both.wav"));
      RecordProperty("frames_after_" + name, after);
      std::printf("%s: %d frames before, %d after\n", name.c_str(), before, after);
      return std::abs(after - before) <= kSame;
    };
    EXPECT_TRUE(comes_true(is_back, kSlippedBack)) << name;
  }
}

}  // namespace
}  // namespace sonivo::test
