#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "../../../../relay/allocation/count_allocations.h"
#include "own_threads.h"
#include "pipewire_relay_bench.h"

namespace sonivo::test {
namespace {

/// This process's threads but the test's own and those that serve what isn't audio.
std::map<pid_t, std::string> audio_threads() {
  auto all = own_threads();
  std::erase_if(all, [](const auto& each) {
    return each.first == ::getpid() || each.second == "audio loop" || each.second == "audio notices";
  });
  return all;
}

class PipeWireAllocationTest : public PipeWireRelayTest {
 protected:
  std::uint64_t blocks() { return relay_->CaptureStatistics().blocks; }
  std::uint64_t packets() { return relay_->RenderStatistics().physical_packets; }
  bool go_on_for(std::uint64_t tens_of_ms) {
    const std::uint64_t last_block = blocks() + tens_of_ms;
    const std::uint64_t last_packet = packets() + tens_of_ms;
    return comes_true([&] { return blocks() >= last_block && packets() >= last_packet; });
  }
};

TEST_F(PipeWireAllocationTest, NothingIsAllocatedByTheThreadsThatAudioPasses) {
  const auto voice = server_->speak_into("notebook.microphone", counting(60));
  const auto recorder = server_->record(kVirtualMic, path("heard.wav"));
  const auto player = server_->play(kVirtualSpeaker, counting(60));
  ASSERT_TRUE(go_on_for(200));

  std::map<pid_t, std::uint64_t> before;
  for (const auto& each : audio_threads()) before[each.first] = allocations_of(each.first);
  const std::uint64_t own = allocations_of(::gettid());
  ASSERT_TRUE(go_on_for(300));
  EXPECT_GT(allocations_of(::gettid()), own) << "looking allocates by itself";
  std::vector<std::string> names;
  for (const auto& [thread, name] : audio_threads()) {
    names.push_back(name);
    EXPECT_EQ(allocations_of(thread), before[thread]) << name;
  }
  EXPECT_THAT(names, testing::IsSupersetOf({"audio pacer", "capture", "render"}));
  EXPECT_GT(names.size(), 3u) << "the data thread bears no name of ours";
}

}  // namespace
}  // namespace sonivo::test
