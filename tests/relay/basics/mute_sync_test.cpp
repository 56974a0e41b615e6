// The mute of the virtual and the physical endpoint, kept equal in both directions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "support/relay_bench.h"
#include "volume_listener.h"

namespace sonivo::test {
namespace {

using sim::kHeadsetMic;
using sim::kMicArray;
using sim::kSpeakers;
using sim::kVirtualMic;
using sim::kVirtualSpeaker;
using sim::Step;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr VolumeChange user(bool muted) { return {muted, {}}; }
constexpr VolumeChange own(bool muted) { return {muted, kOwnVolumeContext}; }

class MuteSync : public testing::Test {
 protected:
  /// Starts the relay and lets it hook the virtual endpoints; no application streams.
  void start() {
    bench.start();
    bench.machine.run_for(5);
    posted_before = bench.machine.desktop().messages().size();
    bench.log.clear();
  }
  sim::EndpointModel& endpoint(const char* id) { return bench.machine.endpoint(id); }
  sim::VolumeModel& volume(const char* id) { return endpoint(id).volume(); }
  /// wParam of each mute message to the mute window since start().
  std::vector<std::uint64_t> mute_messages() {
    std::vector<std::uint64_t> found;
    const auto messages = bench.machine.desktop().messages();
    for (std::size_t i = posted_before; i < messages.size(); ++i) {
      if (messages[i].window == kMuteWindow && messages[i].message == 0x8000) found.push_back(messages[i].wParam);
    }
    return found;
  }

  RelayBench bench;
  std::size_t posted_before = 0;
};

TEST_F(MuteSync, AMuteOfTheVirtualMicrophoneReachesThePhysicalOneAndIsNotSentBack) {
  start();
  const VolumeListener physical(endpoint(kMicArray));
  const VolumeListener virtual_mic(endpoint(kVirtualMic));
  volume(kVirtualMic).set_mute(true);
  bench.machine.run_for(5);
  EXPECT_THAT(virtual_mic.changes(), ElementsAre(user(true)));
  EXPECT_THAT(physical.changes(), ElementsAre(own(true)));
}

TEST_F(MuteSync, AMuteOfThePhysicalMicrophoneReachesTheVirtualOneAndIsNotSentBack) {
  start();
  const VolumeListener physical(endpoint(kMicArray));
  const VolumeListener virtual_mic(endpoint(kVirtualMic));
  volume(kMicArray).set_mute(true);
  bench.machine.run_for(5);
  EXPECT_THAT(physical.changes(), ElementsAre(user(true)));
  EXPECT_THAT(virtual_mic.changes(), ElementsAre(own(true)));
}

TEST_F(MuteSync, UnmutingTravelsAlikeInBothDirections) {
  start();
  volume(kMicArray).set_mute(true);
  bench.machine.run_for(5);
  ASSERT_TRUE(volume(kVirtualMic).muted());
  volume(kVirtualMic).set_mute(false);
  bench.machine.run_for(5);
  EXPECT_FALSE(volume(kMicArray).muted());
  volume(kVirtualMic).set_mute(true);
  bench.machine.run_for(5);
  ASSERT_TRUE(volume(kMicArray).muted());
  volume(kMicArray).set_mute(false);
  bench.machine.run_for(5);
  EXPECT_FALSE(volume(kVirtualMic).muted());
}

TEST_F(MuteSync, AMuteByTheHostHasNoContextAndIsForwardedToTheVirtualMicrophone) {
  start();
  const VolumeListener physical(endpoint(kMicArray));
  const VolumeListener virtual_mic(endpoint(kVirtualMic));
  EXPECT_EQ(bench.relay->SetMuteAction(true), kOk);
  bench.machine.run_for(5);
  EXPECT_THAT(physical.changes(), ElementsAre(user(true)));
  EXPECT_THAT(virtual_mic.changes(), ElementsAre(own(true)));
}

TEST_F(MuteSync, AChangeWithTheProgramsContextIsForwardedInNeitherDirection) {
  start();
  const VolumeListener physical(endpoint(kMicArray));
  const VolumeListener virtual_mic(endpoint(kVirtualMic));
  volume(kMicArray).set_mute(true, &kOwnVolumeContext);
  bench.machine.run_for(5);
  EXPECT_THAT(virtual_mic.changes(), IsEmpty());
  volume(kVirtualMic).set_mute(true, &kOwnVolumeContext);
  bench.machine.run_for(5);
  EXPECT_THAT(physical.changes(), ElementsAre(own(true)));
}

TEST_F(MuteSync, AChangeWithTheContextOfAnotherProgramIsForwarded) {
  start();
  const Guid other{1, 2, 3, {}};
  volume(kMicArray).set_mute(true, &other);
  bench.machine.run_for(5);
  EXPECT_TRUE(volume(kVirtualMic).muted());
}

TEST_F(MuteSync, AChangeOfTheLevelAloneForwardsTheMuteThatComesWithIt) {
  start();
  const VolumeListener virtual_mic(endpoint(kVirtualMic));
  volume(kMicArray).set_level(0.3f);
  bench.machine.run_for(5);
  EXPECT_THAT(virtual_mic.changes(), ElementsAre(own(false)));
  EXPECT_EQ(volume(kVirtualMic).level(), 0.5f);
}

TEST_F(MuteSync, EachNotificationOfTheMicrophonePostsItsMuteToTheMuteWindow) {
  start();
  volume(kVirtualMic).set_mute(true);  // told of this one and of the physical one that follows
  bench.machine.run_for(5);
  EXPECT_THAT(mute_messages(), ElementsAre(1u, 1u));
  volume(kMicArray).set_mute(false);
  bench.machine.run_for(5);
  EXPECT_THAT(mute_messages(), ElementsAre(1u, 1u, 0u, 0u));
  EXPECT_FALSE(bench.log.has("[cap] OnNotify FindWindow error!!\n"));
}

TEST_F(MuteSync, WithoutAMuteWindowTheNotificationIsTraced) {
  bench.relay->SetMuteWindow(WindowHandle::none);
  start();
  volume(kMicArray).set_mute(true, &kOwnVolumeContext);
  bench.machine.run_for(5);
  EXPECT_EQ(bench.log.count("[cap] OnNotify FindWindow error!!\n"), 1u);
  EXPECT_EQ(bench.machine.desktop().messages().size(), posted_before);
}

TEST_F(MuteSync, TheSpeakersMuteIsNeitherForwardedNorPosted) {
  bench.relay->SetMuteWindow(WindowHandle::none);
  start();
  const VolumeListener physical(endpoint(kSpeakers));
  const VolumeListener virtual_speaker(endpoint(kVirtualSpeaker));
  volume(kSpeakers).set_mute(true);
  bench.machine.run_for(5);
  EXPECT_THAT(virtual_speaker.changes(), IsEmpty());
  volume(kSpeakers).set_mute(false);
  volume(kVirtualSpeaker).set_mute(true);
  bench.machine.run_for(5);
  EXPECT_THAT(physical.changes(), ElementsAre(user(true), user(false)));
  EXPECT_FALSE(bench.log.has("[cap] OnNotify FindWindow error!!\n"));
  bench.relay->SetMuteWindow(kMuteWindow);
  volume(kSpeakers).set_mute(true);
  bench.machine.run_for(5);
  EXPECT_THAT(mute_messages(), IsEmpty());
}

TEST_F(MuteSync, TheMuteOfANewlyChosenMicrophoneReachesTheVirtualOne) {
  volume(kHeadsetMic).set_mute(true);
  start();
  const VolumeListener virtual_mic(endpoint(kVirtualMic));
  bench.relay->SetEndpoint(DataFlow::capture, kHeadsetMic);
  bench.machine.run_for(5);
  EXPECT_THAT(virtual_mic.changes(), ElementsAre(own(true)));
  EXPECT_THAT(mute_messages(), ElementsAre(1u, 1u));
}

TEST_F(MuteSync, TheMicrophoneLeftBehindIsNotFollowedAnyMore) {
  start();
  bench.relay->SetEndpoint(DataFlow::capture, kHeadsetMic);
  bench.machine.run_for(5);
  volume(kMicArray).set_mute(true);
  bench.machine.run_for(5);
  EXPECT_FALSE(volume(kVirtualMic).muted());
}

TEST_F(MuteSync, BeforeTheVirtualMicrophoneIsHookedAPhysicalChangeIsOnlyPosted) {
  bench.machine.session().set_console_session(2);  // keeps the streams from hooking
  start();
  volume(kMicArray).set_mute(true);
  bench.machine.run_for(5);
  EXPECT_FALSE(volume(kVirtualMic).muted());
  EXPECT_THAT(mute_messages(), ElementsAre(1u));
  bench.machine.session().set_console_session(1);
  bench.machine.run_for(1000);
  EXPECT_FALSE(volume(kVirtualMic).muted());  // hooking applies only what changes while it goes on
  EXPECT_EQ(volume(kVirtualMic).callbacks().size(), 1u);
}

TEST_F(MuteSync, AFailedWriteToTheOtherEndpointIsLeftAtThat) {
  start();
  bench.machine.script().fail(Step::volume_set_mute, status_bits(0x88890004));
  volume(kMicArray).set_mute(true);
  bench.machine.run_for(5);
  EXPECT_FALSE(volume(kVirtualMic).muted());
  volume(kMicArray).set_mute(true);
  bench.machine.run_for(5);
  EXPECT_TRUE(volume(kVirtualMic).muted());
}

TEST_F(MuteSync, NothingListensAfterTheRelayHasGone) {
  start();
  bench.stop();
  bench.relay.reset();
  EXPECT_EQ(bench.machine.leaks().registered_callbacks, 0u);
  EXPECT_EQ(bench.machine.leaks().volumes, 0u);
}

/// One direction alone: the other one finds no device, so that the script's steps are this one's.
class MuteHooking : public MuteSync {
 protected:
  void prepare(sim::PinId without) {
    bench.machine.driver().surprise_remove(without);
    bench.relay->SetEndpointForce(DataFlow::capture, {});
    bench.relay->SetEndpointForce(DataFlow::render, {});
  }
  /// On a thread of the program: the user changes the mute, and the notification is over before the thread goes on.
  void change_and_notify(const char* id, bool muted) {
    volume(id).set_mute(muted);
    bench.machine.seams().clock.sleep_ms(1);
  }
};

TEST_F(MuteHooking, APhysicalChangeMeanwhileIsAppliedToTheVirtualMicrophoneWithoutAContext) {
  prepare(sim::PinId::speaker);
  const VolumeListener physical(endpoint(kMicArray));
  const VolumeListener virtual_mic(endpoint(kVirtualMic));
  bench.machine.script().before(Step::endpoint_activate_volume, 1, [&] { change_and_notify(kMicArray, true); });
  bench.relay->Start();
  bench.machine.run_for(20);
  EXPECT_THAT(virtual_mic.changes(), ElementsAre(user(true)));
  EXPECT_THAT(physical.changes(), ElementsAre(user(true), own(true)));  // the virtual one's change comes round once
}

TEST_F(MuteHooking, APhysicalChangeMeanwhileIsNotAppliedToTheVirtualSpeaker) {
  prepare(sim::PinId::mic);
  const VolumeListener virtual_speaker(endpoint(kVirtualSpeaker));
  bench.machine.script().before(Step::endpoint_activate_volume, 1, [&] { change_and_notify(kSpeakers, true); });
  bench.relay->Start();
  bench.machine.run_for(20);
  EXPECT_THAT(virtual_speaker.changes(), IsEmpty());
  EXPECT_EQ(volume(kVirtualSpeaker).callbacks().size(), 2u);  // the relay and this test: it is hooked
}

TEST_F(MuteHooking, AppliesNothingWhenNothingChangedMeanwhile) {
  volume(kMicArray).set_mute(true);
  prepare(sim::PinId::speaker);
  const VolumeListener virtual_mic(endpoint(kVirtualMic));
  bench.relay->Start();
  bench.machine.run_for(20);
  EXPECT_THAT(virtual_mic.changes(), IsEmpty());
}

TEST_F(MuteHooking, AnewListensOnceOnly) {
  prepare(sim::PinId::speaker);
  bench.relay->Start();
  for (int round = 0; round < 3; ++round) {
    bench.machine.run_for(5);
    bench.machine.driver().surprise_remove(sim::PinId::mic);
    bench.machine.driver().return_device(sim::PinId::mic);
  }
  bench.machine.run_for(5);
  EXPECT_EQ(volume(kVirtualMic).callbacks().size(), 1u);
}

TEST_F(MuteHooking, WaitsTenMillisecondsForAPhysicalChangeThatIsJustBeingApplied) {
  prepare(sim::PinId::speaker);
  bench.relay->Start();
  bench.machine.run_for(5);
  bench.machine.script().start_trace();
  bench.machine.script().before(Step::volume_set_mute, 1, [&] {
    bench.machine.driver().surprise_remove(sim::PinId::mic);  // the stream starts over
    bench.machine.driver().return_device(sim::PinId::mic);
    bench.machine.seams().clock.sleep_ms(4);
  });
  volume(kMicArray).set_mute(true);
  bench.machine.run_for(30);

  const auto time_of = [trace = bench.machine.script().trace()](const std::string& step) {
    const auto line = std::find_if(trace.begin(), trace.end(), [&](const auto& each) { return each.ends_with(step); });
    return line != trace.end() ? std::stoll(*line) : 0;
  };
  EXPECT_EQ(time_of("volume_unregister") - time_of("device_open"), 10 * sim::kMillisecond);
  EXPECT_TRUE(volume(kVirtualMic).muted());
  EXPECT_EQ(volume(kVirtualMic).callbacks().size(), 1u);
}

}  // namespace
}  // namespace sonivo::test
