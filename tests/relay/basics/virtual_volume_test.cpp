// GetVirtualEndpointVolume.

#include <gtest/gtest.h>

#include "platform/sim/machine.h"
#include "relay/endpoint_names.h"

namespace sonivo::test {
namespace {

using sim::Step;

constexpr Status kGone = status_bits(0x88890004);

class VirtualVolume : public testing::Test {
 protected:
  Status get(DataFlow flow = DataFlow::capture) {
    volume.reset();
    return GetVirtualEndpointVolume(machine.endpoints(), flow, volume);
  }
  /// Whether `volume` is that of the endpoint.
  bool belongs_to(const char* id) {
    volume->set_mute(true, nullptr);
    const bool muted = machine.endpoint(id).volume().muted();
    volume->set_mute(false, nullptr);
    return muted;
  }

  sim::SimMachine machine;
  std::shared_ptr<EndpointVolume> volume;
};

TEST_F(VirtualVolume, IsThatOfTheActiveEndpointWhoseNameContainsTheRelays) {
  EXPECT_EQ(get(DataFlow::capture), kOk);
  ASSERT_NE(volume, nullptr);
  EXPECT_TRUE(belongs_to(sim::kVirtualMic));
  EXPECT_EQ(get(DataFlow::render), kOk);
  ASSERT_NE(volume, nullptr);
  EXPECT_TRUE(belongs_to(sim::kVirtualSpeaker));
}

TEST_F(VirtualVolume, OfSeveralIsThatOfTheLast) {
  machine.endpoints().rename(sim::kHeadsetMic, "Second (Norvell Audio Relay)");
  EXPECT_EQ(get(), kOk);
  ASSERT_NE(volume, nullptr);
  EXPECT_TRUE(belongs_to(sim::kHeadsetMic));
}

TEST_F(VirtualVolume, IsNoneAndNoFailureWhereNoNameMatches) {
  machine.endpoints().rename(sim::kVirtualMic, "Microphone (norvell audio relay)");
  EXPECT_EQ(get(), kOk);
  EXPECT_EQ(volume, nullptr);
}

TEST_F(VirtualVolume, IsNoneWhileTheEndpointIsNotActive) {
  machine.endpoints().set_state(sim::kVirtualMic, kDeviceDisabled);
  EXPECT_EQ(get(), kOk);
  EXPECT_EQ(volume, nullptr);
}

TEST_F(VirtualVolume, IsNoneAndNoFailureWithoutAnyEndpoint) {
  for (const char* id : {sim::kVirtualMic, sim::kMicArray, sim::kHeadsetMic}) machine.endpoints().remove(id);
  EXPECT_EQ(get(), kOk);
  EXPECT_EQ(volume, nullptr);
}

TEST_F(VirtualVolume, FailsWithTheEnumeration) {
  machine.script().fail(Step::endpoints_list, kGone);
  EXPECT_EQ(get(), kGone);
  EXPECT_EQ(volume, nullptr);
}

TEST_F(VirtualVolume, AFailedActivationIsForgottenWhenTheNextEndpointCanBeRead) {
  machine.script().fail(Step::endpoint_activate_volume, kGone);
  EXPECT_EQ(get(), kOk);  // the virtual microphone is the first of three
  EXPECT_EQ(volume, nullptr);
}

TEST_F(VirtualVolume, AFailedActivationOfTheLastEndpointIsTheAnswer) {
  machine.endpoints().rename(sim::kHeadsetMic, "Second (Norvell Audio Relay)");
  machine.script().fail(Step::endpoint_activate_volume, kGone, 2);
  EXPECT_EQ(get(), kGone);
}

TEST_F(VirtualVolume, ANameThatCannotBeReadIsTheAnswerOnlyForTheLastEndpoint) {
  machine.script().fail(Step::endpoint_property_value, kGone, 2);
  EXPECT_EQ(get(), kOk);
  EXPECT_NE(volume, nullptr);
  machine.script().fail(Step::endpoint_open_properties, kGone, 3);
  EXPECT_EQ(get(), kGone);
  EXPECT_NE(volume, nullptr);
}

}  // namespace
}  // namespace sonivo::test
