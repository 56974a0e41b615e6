// What the start and the end of a stream do to the mute.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/relay_bench.h"
#include "volume_listener.h"

namespace sonivo::test {
namespace {

using sim::kMicArray;
using sim::kSpeakers;
using sim::kVirtualMic;
using sim::kVirtualSpeaker;
using sim::Step;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

class MuteAtStream : public testing::Test {
 protected:
  void start() {
    bench.start();
    bench.machine.run_for(5);
  }
  void record() {
    bench.record(pcm_format(48000, 16, 2), {});
    bench.machine.run_for(5);
  }
  void play() {
    bench.play(pcm_format(48000, 16, 2), {});
    bench.machine.run_for(5);
  }
  sim::VolumeModel& volume(const char* id) { return bench.machine.endpoint(id).volume(); }
  /// Traces of the end of a stream, in order.
  std::vector<std::string> end_texts() {
    std::vector<std::string> texts;
    for (const std::string& text : bench.log.traces()) {
      const bool wanted = text.find("RestoreMuteState") != text.npos || text.find("invalid parameter") != text.npos ||
                          text.find("stream stopped") != text.npos;
      if (wanted) texts.push_back(text);
    }
    return texts;
  }

  RelayBench bench;
};

TEST_F(MuteAtStream, AMutedMicrophoneMutesTheVirtualOneWithoutAContext) {
  volume(kMicArray).set_mute(true);
  start();
  const VolumeListener virtual_mic(bench.machine.endpoint(kVirtualMic));
  record();
  EXPECT_THAT(virtual_mic.changes(), Contains(VolumeChange{true, {}}));
  EXPECT_TRUE(volume(kVirtualMic).muted());
  EXPECT_EQ(bench.log.count("[cap] saved mute state: TRUE\n"), 1u);
}

TEST_F(MuteAtStream, AnOpenMicrophoneUnmutesTheVirtualOne) {
  volume(kVirtualMic).set_mute(true);
  start();
  ASSERT_TRUE(volume(kVirtualMic).muted());
  const VolumeListener virtual_mic(bench.machine.endpoint(kVirtualMic));
  record();
  EXPECT_THAT(virtual_mic.changes(), Contains(VolumeChange{false, {}}));
  EXPECT_FALSE(volume(kVirtualMic).muted());
  EXPECT_EQ(bench.log.count("[cap] saved mute state: FALSE\n"), 1u);
}

TEST_F(MuteAtStream, ThePhysicalMuteIsTakenAnewForEachStream) {
  start();
  record();
  bench.machine.driver().close_client(sim::PinId::mic);
  bench.machine.run_for(5);
  volume(kMicArray).set_mute(true, &kOwnVolumeContext);  // not forwarded
  bench.machine.run_for(5);
  record();
  EXPECT_TRUE(volume(kVirtualMic).muted());
  EXPECT_EQ(bench.log.count("[cap] saved mute state: FALSE\n"), 1u);
  EXPECT_EQ(bench.log.count("[cap] saved mute state: TRUE\n"), 1u);
}

// What the virtual microphone hears then bears the program's context: it follows from the level that a stream sets.
TEST_F(MuteAtStream, AMicrophoneThatCannotBeAskedHasTheVirtualMuteNotedAndNotSet) {
  volume(kVirtualMic).set_mute(true);
  start();
  const VolumeListener virtual_mic(bench.machine.endpoint(kVirtualMic));
  bench.machine.script().fail(Step::volume_mute, status_bits(0x88890004));
  record();
  EXPECT_THAT(virtual_mic.changes(), Each(Field(&VolumeChange::context, kOwnVolumeContext)));
  EXPECT_EQ(bench.log.count("[cap] saved mute state: TRUE\n"), 1u);
}

TEST_F(MuteAtStream, ThePhysicalSpeakersMuteIsNotedButNotPassedOn) {
  volume(kSpeakers).set_mute(true);
  start();
  const VolumeListener virtual_speaker(bench.machine.endpoint(kVirtualSpeaker));
  play();
  EXPECT_THAT(virtual_speaker.changes(), IsEmpty());
  EXPECT_EQ(bench.log.count("[ren] saved mute state: TRUE\n"), 1u);
}

TEST_F(MuteAtStream, ASpeakerThatCannotBeAskedHasTheVirtualMuteNoted) {
  volume(kVirtualSpeaker).set_mute(true);
  start();
  bench.machine.script().fail(Step::volume_mute, status_bits(0x88890004));
  play();
  EXPECT_EQ(bench.log.count("[ren] saved mute state: TRUE\n"), 1u);
}

TEST_F(MuteAtStream, TheEndOfAStreamOnlyTraces) {
  start();
  record();
  volume(kMicArray).set_mute(true);  // while it runs; FALSE was noted at its start
  bench.machine.run_for(5);
  const VolumeListener physical(bench.machine.endpoint(kMicArray));
  const VolumeListener virtual_mic(bench.machine.endpoint(kVirtualMic));
  bench.machine.driver().close_client(sim::PinId::mic);
  bench.machine.run_for(5);
  EXPECT_THAT(end_texts(), ElementsAre("[cap] stream stopped\n", "[cap] RestoreMuteState() -- enter\n",
                                       "[cap] RestoreMuteState() -- leave\n"));
  EXPECT_TRUE(volume(kMicArray).muted());
  EXPECT_TRUE(volume(kVirtualMic).muted());
  EXPECT_THAT(virtual_mic.changes(), Each(Field(&VolumeChange::muted, true)));
  EXPECT_THAT(physical.changes(), Each(Field(&VolumeChange::muted, true)));
}

TEST_F(MuteAtStream, TheEndOfARenderStreamTracesAlike) {
  start();
  play();
  bench.machine.driver().close_client(sim::PinId::speaker);
  bench.machine.run_for(5);
  EXPECT_THAT(end_texts(), ElementsAre("[ren] stream stopped\n", "[ren] RestoreMuteState() -- enter\n",
                                       "[ren] RestoreMuteState() -- leave\n"));
}

// The stream itself can't run without the virtual endpoint, but it gets as far as the mute.
TEST_F(MuteAtStream, WithoutTheVirtualEndpointsVolumeThereIsNothingToSaveOrRestore) {
  bench.machine.endpoints().set_state(kVirtualMic, kDeviceDisabled);
  start();
  EXPECT_TRUE(bench.log.has("[cap] GetVirtualEndpointVolume failed.\n"));
  EXPECT_FALSE(bench.log.has("[ren] GetVirtualEndpointVolume failed.\n"));
  bench.record(pcm_format(48000, 16, 2), {});
  bench.machine.script().before(Step::audio_class_enter, 1,
                                [this] { bench.machine.driver().close_client(sim::PinId::mic); });
  bench.machine.run_for(5);
  EXPECT_THAT(end_texts(), ElementsAre("[cap] stream stopped\n", "[cap] RestoreMuteState() -- enter\n",
                                       "[cap] invalid parameter\n", "[cap] RestoreMuteState() -- leave\n"));
  EXPECT_FALSE(bench.log.has("[cap] saved mute state: FALSE\n"));
  EXPECT_FALSE(bench.log.has("[cap] saved mute state: TRUE\n"));
}

TEST_F(MuteAtStream, WithoutTheVirtualSpeakersVolumeTheTextsAreTheRenderOnes) {
  bench.machine.endpoints().set_state(kVirtualSpeaker, kDeviceDisabled);
  start();
  EXPECT_TRUE(bench.log.has("[ren] GetVirtualEndpointVolume failed.\n"));
  bench.play(pcm_format(48000, 16, 2), {});
  bench.machine.script().before(Step::audio_class_enter, 1,
                                [this] { bench.machine.driver().close_client(sim::PinId::speaker); });
  bench.machine.run_for(5);
  EXPECT_THAT(end_texts(), ElementsAre("[ren] stream stopped\n", "[ren] RestoreMuteState() -- enter\n",
                                       "[ren] invalid parameter\n", "[ren] RestoreMuteState() -- leave\n"));
}

}  // namespace
}  // namespace sonivo::test
