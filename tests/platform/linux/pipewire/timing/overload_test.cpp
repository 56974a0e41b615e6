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
  /// Frames by which the right channel is later, once it has stayed the same for a tenth of a second.
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
      return behind > 0 && lag(kRate / 20) == behind && lag(kRate / 10) == behind;
    }));
    return behind;
  }
};

TEST_F(PipeWireOverloadTest, TheWayThroughTheRelayIsAsLongAfterAnOverloadAsBefore) {
  server_->force("clock.force-quantum", 256);
  const auto voice = server_->speak_into("notebook.microphone", counting(120));
  const auto recorder = record_both(path("both.wav"));
  std::this_thread::sleep_for(std::chrono::seconds(2));
  const int before = frames_behind(path("both.wav"));
  for (const std::string name : {"capture", "audio pacer"}) {
    const auto thread = own_threads_called(name);
    ASSERT_EQ(thread.size(), 1u) << name;
    for (int i = 0; i < 3; ++i) {
      stall(thread.front());
      std::this_thread::sleep_for(std::chrono::milliseconds(2 * kStallMs));
    }
    const int after = frames_behind(path("both.wav"));
    RecordProperty("frames_after_" + name, after);
    EXPECT_LE(std::abs(after - before), static_cast<int>(kRate / 50)) << name;
  }
}

}  // namespace
}  // namespace sonivo::test
