// IVolumeControl on the capture stream, as the host reaches it.

#include "relay/volume_control.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/relay_bench.h"
#include "volume_listener.h"

namespace sonivo::test {
namespace {

using sim::kMicArray;
using sim::Step;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Status kGone = status_bits(0x88890004);
constexpr Status kNoVolume = status_bits(0x8007139F);  // error 5023

/// A relay that isn't started, with the microphone array as its physical microphone.
class VolumeControl : public testing::Test {
 protected:
  VolumeControl() { relay().SetEndpointForce(DataFlow::capture, kMicArray); }

  CAudioControl& relay() { return *bench.relay; }
  sim::EndpointModel& mic() { return bench.machine.endpoint(kMicArray); }
  sim::EchoFilter& filter() { return bench.machine.driver().echo_filter(); }
  Status get_mute(std::uint32_t& muted) {
    return dynamic_cast<IVolumeControl&>(relay().Stream(DataFlow::capture)).GetMute(&muted);
  }

  RelayBench bench{{.echo_filter = true}};
};

TEST_F(VolumeControl, MutesThePhysicalMicrophoneWithoutAContextAndTellsTheFilter) {
  const VolumeListener changes(mic());
  EXPECT_EQ(relay().SetMuteAction(true), kOk);
  EXPECT_EQ(relay().SetMuteAction(false), kOk);
  bench.machine.run_for(1);
  EXPECT_THAT(changes.changes(), ElementsAre(VolumeChange{true, {}}, VolumeChange{false, {}}));
  EXPECT_THAT(filter().values(), ElementsAre(1u, 0u));
  EXPECT_FALSE(bench.log.has("[cap] mute failed.\n"));
}

TEST_F(VolumeControl, AFailedMuteIsAnsweredTracedAndNotToldToTheFilter) {
  bench.machine.script().fail(Step::volume_set_mute, kGone);
  EXPECT_EQ(relay().SetMuteAction(true), kGone);
  EXPECT_EQ(bench.log.count("[cap] mute failed.\n"), 1u);
  EXPECT_THAT(filter().values(), IsEmpty());
}

TEST_F(VolumeControl, MutingWithoutAMicrophoneFails) {
  relay().SetEndpointForce(DataFlow::capture, "{0.0.1.00000000}.{nowhere}");
  EXPECT_EQ(relay().SetMuteAction(true), kNoVolume);
  EXPECT_TRUE(bench.log.has("[cap] mute failed.\n"));
  EXPECT_THAT(filter().values(), IsEmpty());
}

TEST_F(VolumeControl, AnAbsentFilterChangesNothing) {
  filter().set_present(false);
  EXPECT_EQ(relay().SetMuteAction(true), kOk);
  EXPECT_TRUE(mic().volume().muted());
  EXPECT_FALSE(bench.log.has("[cap] mute failed.\n"));
}

TEST_F(VolumeControl, ARefusingFilterChangesNothing) {
  bench.machine.script().fail(Step::filter_control, error::kInvalidFunction);
  EXPECT_EQ(relay().SetMuteAction(true), kOk);
  filter().set_answer(1);
  EXPECT_EQ(relay().SetMuteAction(true), kOk);
  EXPECT_TRUE(mic().volume().muted());
  EXPECT_FALSE(bench.log.has("[cap] mute failed.\n"));
}

TEST_F(VolumeControl, TellsTheMuteOfThePhysicalMicrophone) {
  std::uint32_t muted = 99;
  EXPECT_EQ(get_mute(muted), kOk);
  EXPECT_EQ(muted, 0u);
  mic().volume().set_mute(true);
  EXPECT_EQ(get_mute(muted), kOk);
  EXPECT_EQ(muted, 1u);
  EXPECT_FALSE(bench.log.has("[cap] GetMute failed.\n"));
}

TEST_F(VolumeControl, AMicrophoneThatCannotBeAskedCountsAsMuted) {
  bench.machine.script().fail(Step::volume_mute, kGone);
  std::uint32_t muted = 0;
  EXPECT_EQ(get_mute(muted), kGone);
  EXPECT_EQ(muted, 1u);
  EXPECT_EQ(bench.log.count("[cap] GetMute failed.\n"), 1u);
}

TEST_F(VolumeControl, AnAbsentMicrophoneCountsAsMuted) {
  relay().SetEndpointForce(DataFlow::capture, "{0.0.1.00000000}.{nowhere}");
  std::uint32_t muted = 0;
  EXPECT_EQ(get_mute(muted), kNoVolume);
  EXPECT_EQ(muted, 1u);
  EXPECT_TRUE(bench.log.has("[cap] GetMute failed.\n"));
}

TEST_F(VolumeControl, TheDeviceNameIsSearchedForTheText) {
  EXPECT_EQ(relay().CheckDeviceName("Realtek High Definition Audio"), kOk);
  EXPECT_EQ(relay().CheckDeviceName("Microphone Array (Realtek High Definition Audio)"), kOk);
  EXPECT_EQ(relay().CheckDeviceName("Array"), kOk);
  EXPECT_FALSE(bench.log.has("[cap] CheckDeviceName failed.\n"));
}

TEST_F(VolumeControl, ADeviceNameWithoutTheTextFails) {
  for (const char* text : {"USB", "realtek", "Microphone Array (Realtek High Definition Audio) 2"}) {
    bench.log.clear();
    EXPECT_EQ(static_cast<std::uint32_t>(relay().CheckDeviceName(text)), 0x80004005u) << text;
    EXPECT_THAT(bench.log.traces(), ElementsAre("[cap] CheckDeviceName failed.\n")) << text;
  }
}

TEST_F(VolumeControl, TheDeviceNameIsReadAnewEachTime) {
  bench.machine.endpoints().rename(kMicArray, "External Mic");
  EXPECT_EQ(relay().CheckDeviceName("External"), kOk);
  EXPECT_EQ(relay().CheckDeviceName("Realtek"), kFail);
}

TEST_F(VolumeControl, ADeviceNameWithoutAMicrophoneFails) {
  relay().SetEndpointForce(DataFlow::capture, "{0.0.1.00000000}.{nowhere}");
  bench.log.clear();
  EXPECT_EQ(relay().CheckDeviceName(""), kFail);
  EXPECT_THAT(bench.log.traces(), ElementsAre("[cap] CheckDeviceName failed.\n"));
}

TEST_F(VolumeControl, APropertyStoreThatWillNotOpenIsAnsweredAndTraced) {
  bench.machine.script().fail(Step::endpoint_open_properties, kGone);
  bench.log.clear();
  EXPECT_EQ(relay().CheckDeviceName("Realtek"), kGone);
  EXPECT_THAT(bench.log.traces(),
              ElementsAre("[cap] CheckDeviceName::OpenPropertyStore fail.\n", "[cap] CheckDeviceName failed.\n"));
}

TEST_F(VolumeControl, ADeviceNameThatCannotBeReadIsAnsweredAndTraced) {
  bench.machine.script().fail(Step::endpoint_property_value, kGone);
  bench.log.clear();
  EXPECT_EQ(relay().CheckDeviceName("Realtek"), kGone);
  EXPECT_THAT(bench.log.traces(),
              ElementsAre("[cap] CheckDeviceName::GetValue fail.\n", "[cap] CheckDeviceName failed.\n"));
}

}  // namespace
}  // namespace sonivo::test
