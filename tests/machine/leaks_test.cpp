#include <sys/types.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "counting_audio.h"
#include "own_machine_bench.h"

namespace sonivo::test {
namespace {

/// How often everything comes and goes; more in a long run.
int rounds() {
  const char* wanted = std::getenv("SONIVO_LEAK_ROUNDS");
  return wanted != nullptr ? std::atoi(wanted) : 10;
}

/// What a process holds of the machine.
struct Holdings {
  std::size_t descriptors = 0;
  std::size_t threads = 0;
  std::size_t memory_kib = 0;  ///< of its own that it has touched
};

Holdings holdings_of(pid_t process) {
  const std::filesystem::path folder("/proc/" + std::to_string(process));
  const auto entries = [&](const char* name) {
    const std::filesystem::directory_iterator all(folder / name);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  };
  Holdings holdings{.descriptors = entries("fd"), .threads = entries("task")};
  std::ifstream status(folder / "status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("RssAnon:")) holdings.memory_kib = std::stoul(line.substr(8));
  }
  return holdings;
}

/// The programs' holdings from round to round, each of which leaves them at rest.
class LeaksTest : public DrivenMachineTest {
 protected:
  void SetUp() override {
#if defined(SONIVO_ASAN)
    GTEST_SKIP() << "the sanitizer keeps memory that is given back";
#endif
    DrivenMachineTest::SetUp();
    if (!server_) return;
    const Told told = sonivo({"setup", "--chain", "ai"});
    ASSERT_EQ(told.code, 0) << told.text;
    start_service();
  }

  /// They come and go with the session manager, as those of a sound card do.
  AudioServer::Devices devices() override { return AudioServer::Devices::of_manager; }

  /// Whether the service says that both its directions are in that state.
  bool both_are_in(const std::string& state) {
    return comes_true([&] {
      const std::string text = status().text;
      const std::size_t first = text.find(state);
      return first != text.npos && text.find(state, first + 1) != text.npos;
    });
  }
  bool stream() { return both_are_in("ePhysicalStreaming"); }
  bool are_at_rest() { return both_are_in("eWaitVirtualStream"); }

  /// While an application records and another plays.
  void with_streams(const std::function<void()>& meanwhile) {
    {
      const auto recorder = server_->start(
          {"pw-record", "--target", kVirtualMic, "-P", "{ node.name = recorder }", "--format", "s16", folder("heard")});
      const auto player = server_->play(kVirtualSpeaker, folder("silence.wav"));
      EXPECT_TRUE(stream());
      meanwhile();
    }
    EXPECT_TRUE(are_at_rest());
  }
  void unlink_and_link_the_recorder() {
    const auto each_channel = [&](std::vector<std::string> words) {
      for (const std::string channel : {"FL", "FR"}) {
        std::vector<std::string> command = words;
        command.insert(command.end(), {std::string(kVirtualMic) + ":capture_" + channel, "recorder:input_" + channel});
        server_->run(command);
      }
    };
    each_channel({"pw-link", "-d"});
    EXPECT_TRUE(comes_true([&] { return server_->state_of("sonivo.microphone").empty(); }));
    each_channel({"pw-link"});
    EXPECT_TRUE(stream());
  }
  void let_a_headset_come_and_go() {
    server_->plug_headset();
    server_->set_default("default.configured.audio.source", "usb.headset");
    EXPECT_TRUE(comes_true([&] { return server_->state_of("usb.headset") == "running"; }));
    EXPECT_TRUE(stream());
    server_->unplug_headset();
    EXPECT_TRUE(comes_true([&] { return server_->state_of("notebook.microphone") == "running"; }));
    EXPECT_TRUE(stream());
  }
  void kill_the_driver() {
    end_driver();
    start_driver();
    EXPECT_TRUE(comes_true([&] { return status().has("\"driver_ready\": true"); }));
  }
  void kill_the_manager() {
    server_->kill_manager();
    start_the_manager();
  }
  void kill_the_server() {
    server_->kill_server();
    server_->kill_manager();
    server_->start_server();
    start_the_manager();
  }
  void start_the_manager() {
    EXPECT_TRUE(comes_true([&] { return server_->run({"pw-metadata", "0"}).find("notebook") == std::string::npos; }));
    server_->start_manager();
    wait_for_defaults();
    EXPECT_TRUE(comes_true([&] { return !server_->state_of(kVirtualMic).empty(); }));
    EXPECT_TRUE(comes_true([&] { return !server_->state_of(kVirtualSpeaker).empty(); }));
  }

  /// In the second half the driver lives on, so that its memory can be looked at.
  void live_through(int round) {
    switch (round % kKinds) {
      case 0:
        return with_streams([&] {
          if (2 * round < rounds()) kill_the_driver();
        });
      case 1:
        return with_streams([&] { unlink_and_link_the_recorder(); });
      case 2:
        return with_streams([&] { let_a_headset_come_and_go(); });
      case 3:
        with_streams([] {});
        return kill_the_manager();
      default:
        return with_streams([&] { kill_the_server(); });
    }
  }

  static constexpr int kKinds = 5;
};

/// Of the memory in the rounds from one to another.
double mean_kib(const std::vector<Holdings>& all, std::size_t begin, std::size_t end) {
  double sum = 0;
  for (std::size_t i = begin; i < end; ++i) sum += static_cast<double>(all[i].memory_kib);
  return sum / static_cast<double>(end - begin);
}

/// More of them than after the first round of a kind are a leak.
constexpr std::size_t kMoreDescriptors = 1;

/// After another round: what is given back late, as the buffers of a stream or somebody's connection, is waited for.
void look_at(pid_t process, std::vector<Holdings>& all, std::size_t kinds) {
  Holdings now;
  comes_true([&] {
    now = holdings_of(process);
    return all.size() < kinds || now.descriptors <= all[all.size() % kinds].descriptors + kMoreDescriptors;
  });
  all.push_back(now);
}

/// Rounds of a kind are like each other.
void expect_flat(const char* program, const std::vector<Holdings>& all, std::size_t kinds) {
  for (std::size_t i = kinds; i < all.size(); ++i) {
    EXPECT_LE(all[i].descriptors, all[i % kinds].descriptors + kMoreDescriptors) << program << " in round " << i;
    EXPECT_EQ(all[i].threads, all[i % kinds].threads) << program << " in round " << i;
  }
  if (all.size() < 100) return;  // the allocator comes to its rest later
  const std::size_t quarter = all.size() / 4;
  const double before = mean_kib(all, 2 * quarter, 3 * quarter);
  const double after = mean_kib(all, 3 * quarter, 4 * quarter);
  std::printf("%s: %.0f KiB in the third quarter, %.0f in the last\n", program, before, after);
  EXPECT_LT(after, before + 1024) << program;
}

TEST_F(LeaksTest, NothingIsHeldOfWhatCameAndWent) {
  server_->folder().write("silence.wav", wav_of(std::vector<StereoFrame>(60 * 48000)));
  std::vector<Holdings> of_service;
  std::vector<Holdings> of_driver;
  for (int round = 0; round < rounds(); ++round) {
    live_through(round);
    look_at(service().id(), of_service, kKinds);
    look_at(driver().id(), of_driver, kKinds);
  }
  expect_flat("service", of_service, kKinds);
  expect_flat("driver", of_driver, kKinds);
}

}  // namespace
}  // namespace sonivo::test
