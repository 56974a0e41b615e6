#include "relay/physical_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "platform/sim/machine.h"

namespace sonivo::test {
namespace {

using sim::kHeadsetMic;
using sim::kMicArray;
using sim::kVirtualMic;
using sim::Step;
using testing::IsEmpty;
using testing::SizeIs;

static_assert(std::has_virtual_destructor_v<CPhysicalDevice>);

constexpr Status kNoVolume = status_bits(0x8007139F);  // error 5023

/// Keeps the notifications of the physical endpoint.
struct Owner final : IMultiAudioEndpointVolumeCallback {
  void OnNotify(CAudioEndpointVolumeCallback* callback, const AUDIO_VOLUME_NOTIFICATION_DATA* data) override {
    EXPECT_FALSE(callback->IsVirtual());
    told.push_back(*data);
  }
  std::vector<AUDIO_VOLUME_NOTIFICATION_DATA> told;
};

class PhysicalDevice : public testing::Test {
 protected:
  sim::VolumeModel& volume(const char* id) { return machine.endpoint(id).volume(); }
  std::string device_id() const {
    std::string id;
    if (const auto endpoint = device.GetDevice()) endpoint->id(id);
    return id;
  }
  std::size_t callbacks(const char* id) { return volume(id).callbacks().size(); }

  sim::SimMachine machine;
  Owner owner;
  CPhysicalDevice device{machine.endpoints(), DataFlow::capture, &owner};
};

TEST_F(PhysicalDevice, HasNoDeviceAndNoVolumeAtFirst) {
  EXPECT_EQ(device.GetDevice(), nullptr);
  EXPECT_FALSE(device.IsChangePending());
  bool muted = false;
  float level = 0;
  EXPECT_EQ(device.GetMute(muted), kNoVolume);
  EXPECT_EQ(device.SetMute(true, nullptr), kNoVolume);
  EXPECT_EQ(device.GetVolumeLevel(level), kNoVolume);
  EXPECT_EQ(device.SetVolumeLevel(0.5f, nullptr), kNoVolume);
}

TEST_F(PhysicalDevice, WhileClosedTakesAnEndpointAtOnce) {
  EXPECT_EQ(device.SetEndpoint(kMicArray), kOk);
  EXPECT_EQ(device_id(), kMicArray);
  EXPECT_FALSE(device.IsChangePending());
}

TEST_F(PhysicalDevice, IgnoresTheCaseOfTheId) {
  std::string id = kMicArray;
  for (char& c : id) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  ASSERT_NE(id, kMicArray);
  EXPECT_EQ(device.SetEndpoint(id), kOk);
  EXPECT_EQ(device_id(), kMicArray);
}

TEST_F(PhysicalDevice, AnUnknownEndpointFailsAndLeavesNoDevice) {
  device.SetEndpoint(kMicArray);
  EXPECT_EQ(static_cast<std::uint32_t>(device.SetEndpoint("{0.0.1.00000000}.{nowhere}")), 0x80004005u);
  EXPECT_EQ(device.GetDevice(), nullptr);
}

TEST_F(PhysicalDevice, NeverTakesTheVirtualEndpoint) {
  EXPECT_EQ(device.SetEndpoint(kVirtualMic), kFail);
  EXPECT_EQ(device.GetDevice(), nullptr);
}

TEST_F(PhysicalDevice, SkipsAnyEndpointWhoseNameContainsThatOfTheVirtualOne) {
  machine.endpoints().rename(kMicArray, "My Norvell Audio Relay clone");
  EXPECT_EQ(device.SetEndpoint(kMicArray), kFail);
  machine.endpoints().rename(kMicArray, "My norvell audio relay clone");
  EXPECT_EQ(device.SetEndpoint(kMicArray), kOk);
}

TEST_F(PhysicalDevice, TakesActiveEndpointsOnly) {
  for (const std::uint32_t state : {kDeviceDisabled, kDeviceNotPresent, kDeviceUnplugged}) {
    machine.endpoints().set_state(kMicArray, state);
    EXPECT_EQ(device.SetEndpoint(kMicArray), kFail) << state;
  }
}

TEST_F(PhysicalDevice, TakesEndpointsOfItsDirectionOnly) {
  EXPECT_EQ(device.SetEndpoint(sim::kSpeakers), kFail);
  CPhysicalDevice speaker(machine.endpoints(), DataFlow::render, &owner);
  EXPECT_EQ(speaker.SetEndpoint(sim::kSpeakers), kOk);
}

TEST_F(PhysicalDevice, AnsweredWithTheFailureOfTheEnumeration) {
  machine.script().fail(Step::endpoints_list, status_bits(0x88890010));
  EXPECT_EQ(device.SetEndpoint(kMicArray), status_bits(0x88890010));
}

TEST_F(PhysicalDevice, AnsweredWithTheFailureOfTheVolume) {
  machine.script().fail(Step::endpoint_activate_volume, status_bits(0x88890010));
  EXPECT_EQ(device.SetEndpoint(kMicArray), status_bits(0x88890010));
  EXPECT_EQ(device.SetMute(true, nullptr), kNoVolume);
  EXPECT_THAT(owner.told, IsEmpty());
}

TEST_F(PhysicalDevice, TellsTheNewDevicesMuteAsIfItHadJustChanged) {
  volume(kMicArray).set_mute(true);
  volume(kMicArray).set_level(0.25f);
  device.SetEndpoint(kMicArray);
  ASSERT_THAT(owner.told, SizeIs(1));
  EXPECT_TRUE(owner.told[0].bMuted);
  EXPECT_EQ(owner.told[0].fMasterVolume, 0.25f);
  EXPECT_EQ(owner.told[0].guidEventContext, Guid{});
}

TEST_F(PhysicalDevice, TellsTheMuteBeforeItListens) {
  std::size_t told_before = 0;
  machine.script().before(Step::volume_register, 1, [&] { told_before = owner.told.size(); });
  device.SetEndpoint(kMicArray);
  EXPECT_EQ(told_before, 1u);
}

TEST_F(PhysicalDevice, ListensToTheNewDevice) {
  device.SetEndpoint(kMicArray);
  EXPECT_EQ(callbacks(kMicArray), 1u);
  volume(kMicArray).set_mute(true, &kOwnVolumeContext);
  machine.run_for(1);
  ASSERT_THAT(owner.told, SizeIs(2));
  EXPECT_TRUE(owner.told[1].bMuted);
  EXPECT_EQ(owner.told[1].guidEventContext, kOwnVolumeContext);
}

TEST_F(PhysicalDevice, AnsweredWithTheFailureOfTheRegistration) {
  machine.script().fail(Step::volume_register, status_bits(0x88890010));
  EXPECT_EQ(device.SetEndpoint(kMicArray), status_bits(0x88890010));
}

TEST_F(PhysicalDevice, StopsListeningToTheDeviceItLeaves) {
  device.SetEndpoint(kMicArray);
  device.SetEndpoint(kHeadsetMic);
  EXPECT_EQ(callbacks(kMicArray), 0u);
  EXPECT_EQ(callbacks(kHeadsetMic), 1u);
  EXPECT_EQ(device_id(), kHeadsetMic);
}

TEST_F(PhysicalDevice, AnEmptyIdClearsTheDevice) {
  device.SetEndpoint(kMicArray);
  EXPECT_EQ(device.SetEndpoint({}), kOk);
  EXPECT_EQ(device.GetDevice(), nullptr);
  EXPECT_EQ(callbacks(kMicArray), 0u);
  bool muted = false;
  EXPECT_EQ(device.GetMute(muted), kNoVolume);
}

TEST_F(PhysicalDevice, SettingTheSameEndpointOpensItAnew) {
  device.SetEndpoint(kMicArray);
  device.SetEndpoint(kMicArray);
  EXPECT_THAT(owner.told, SizeIs(2));
  EXPECT_EQ(callbacks(kMicArray), 1u);
}

TEST_F(PhysicalDevice, WhileOpenAChangeWaits) {
  device.SetEndpoint(kMicArray);
  device.MarkOpen();
  EXPECT_FALSE(device.IsChangePending());
  EXPECT_EQ(device.SetEndpoint(kHeadsetMic), kOk);
  EXPECT_TRUE(device.IsChangePending());
  EXPECT_EQ(device_id(), kMicArray);
}

TEST_F(PhysicalDevice, AWaitingChangeIsAppliedAtTheClose) {
  device.SetEndpoint(kMicArray);
  device.MarkOpen();
  device.SetEndpoint(kHeadsetMic);
  device.ClearState();
  EXPECT_FALSE(device.IsChangePending());
  EXPECT_EQ(device_id(), kHeadsetMic);
}

TEST_F(PhysicalDevice, OfSeveralWaitingChangesTheLatestIsApplied) {
  device.SetEndpoint(kMicArray);
  device.MarkOpen();
  device.SetEndpoint({});
  EXPECT_EQ(device.SetEndpoint(kHeadsetMic), kOk);
  EXPECT_TRUE(device.IsChangePending());
  device.ClearState();
  EXPECT_EQ(device_id(), kHeadsetMic);
}

TEST_F(PhysicalDevice, AWaitingChangeToAnUnknownEndpointSucceedsUntilItIsApplied) {
  device.SetEndpoint(kMicArray);
  device.MarkOpen();
  EXPECT_EQ(device.SetEndpoint("{0.0.1.00000000}.{nowhere}"), kOk);
  device.ClearState();
  EXPECT_EQ(device.GetDevice(), nullptr);
}

TEST_F(PhysicalDevice, AnEndpointThatComesAfterItWasWantedIsTakenWhenItIsOpened) {
  machine.endpoints().set_state(kMicArray, kDeviceNotPresent);
  EXPECT_EQ(device.SetEndpoint(kMicArray), kFail);
  device.MarkOpen();
  EXPECT_EQ(device.GetDevice(), nullptr);
  device.ClearState();
  machine.endpoints().set_state(kMicArray, kDeviceActive);
  EXPECT_EQ(device.GetDevice(), nullptr);
  device.MarkOpen();
  EXPECT_EQ(device_id(), kMicArray);
  EXPECT_EQ(callbacks(kMicArray), 1u);
  EXPECT_FALSE(device.IsChangePending());
}

TEST_F(PhysicalDevice, ACloseWithoutAWaitingChangeKeepsTheDevice) {
  device.SetEndpoint(kMicArray);
  device.MarkOpen();
  device.ClearState();
  EXPECT_EQ(device_id(), kMicArray);
  EXPECT_THAT(owner.told, SizeIs(1));  // it wasn't opened anew
  EXPECT_EQ(device.SetEndpoint(kHeadsetMic), kOk);
  EXPECT_EQ(device_id(), kHeadsetMic);
}

TEST_F(PhysicalDevice, SetsMuteWithTheCallersContext) {
  device.SetEndpoint(kMicArray);
  EXPECT_EQ(device.SetMute(true, &kOwnVolumeContext), kOk);
  EXPECT_TRUE(volume(kMicArray).muted());
  bool muted = false;
  EXPECT_EQ(device.GetMute(muted), kOk);
  EXPECT_TRUE(muted);
  machine.run_for(1);
  ASSERT_THAT(owner.told, SizeIs(2));
  EXPECT_EQ(owner.told[1].guidEventContext, kOwnVolumeContext);
}

TEST_F(PhysicalDevice, SetsTheLevelAsAScalarWithTheCallersContext) {
  device.SetEndpoint(kMicArray);
  EXPECT_EQ(device.SetVolumeLevel(0.9f, nullptr), kOk);
  EXPECT_EQ(volume(kMicArray).level(), 0.9f);
  float level = 0;
  EXPECT_EQ(device.GetVolumeLevel(level), kOk);
  EXPECT_EQ(level, 0.9f);
  machine.run_for(1);
  ASSERT_THAT(owner.told, SizeIs(2));
  EXPECT_EQ(owner.told[1].guidEventContext, Guid{});
}

TEST_F(PhysicalDevice, PassesOnTheFailuresOfTheVolume) {
  device.SetEndpoint(kMicArray);
  constexpr Status kGone = status_bits(0x88890004);
  for (const Step step : {Step::volume_mute, Step::volume_set_mute, Step::volume_level, Step::volume_set_level}) {
    machine.script().fail(step, kGone);
  }
  bool muted = false;
  float level = 0;
  EXPECT_EQ(device.GetMute(muted), kGone);
  EXPECT_EQ(device.SetMute(true, nullptr), kGone);
  EXPECT_EQ(device.GetVolumeLevel(level), kGone);
  EXPECT_EQ(device.SetVolumeLevel(0.5f, nullptr), kGone);
}

TEST_F(PhysicalDevice, StopsListeningWhenItGoes) {
  {
    CPhysicalDevice other(machine.endpoints(), DataFlow::capture, &owner);
    other.SetEndpoint(kHeadsetMic);
    ASSERT_EQ(callbacks(kHeadsetMic), 1u);
  }
  EXPECT_EQ(callbacks(kHeadsetMic), 0u);
}

}  // namespace
}  // namespace sonivo::test
