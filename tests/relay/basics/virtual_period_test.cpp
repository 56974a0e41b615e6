// GetVirtualEndpointPeriod.

#include <gtest/gtest.h>

#include "platform/sim/machine.h"
#include "relay/endpoint_names.h"

namespace sonivo::test {
namespace {

using sim::Step;

constexpr Status kGone = status_bits(0x88890004);

/// Every endpoint has a period of its own to be told by.
class VirtualPeriod : public testing::Test {
 protected:
  VirtualPeriod() {
    std::uint32_t period = 100;
    for (const char* id : {sim::kVirtualMic, sim::kMicArray, sim::kHeadsetMic, sim::kVirtualSpeaker}) {
      machine.endpoint(id).set_period(++period);
    }
  }
  Status get(DataFlow flow = DataFlow::capture) {
    frames = 7;
    return GetVirtualEndpointPeriod(machine.endpoints(), flow, frames);
  }
  void name_like_the_relay(const char* id) { machine.endpoints().rename(id, "Second (Norvell Audio Relay)"); }

  sim::SimMachine machine;
  std::uint32_t frames = 0;
};

TEST_F(VirtualPeriod, IsThatOfTheEndpointOfTheFlowWhoseNameContainsTheRelays) {
  EXPECT_EQ(get(DataFlow::capture), kOk);
  EXPECT_EQ(frames, 101u);
  EXPECT_EQ(get(DataFlow::render), kOk);
  EXPECT_EQ(frames, 104u);
}

TEST_F(VirtualPeriod, OfSeveralIsThatOfTheFirst) {
  name_like_the_relay(sim::kHeadsetMic);
  EXPECT_EQ(get(), kOk);
  EXPECT_EQ(frames, 101u);
  machine.endpoints().rename(sim::kVirtualMic, "Line");
  name_like_the_relay(sim::kMicArray);
  EXPECT_EQ(get(), kOk);
  EXPECT_EQ(frames, 102u);
}

TEST_F(VirtualPeriod, IsNotFoundWhereNoNameMatches) {
  machine.endpoints().rename(sim::kVirtualMic, "Microphone (norvell audio relay)");
  EXPECT_EQ(get(), status_from_error(1168));
  EXPECT_EQ(get(), status_bits(0x80070490));
  EXPECT_EQ(frames, 7u);
}

TEST_F(VirtualPeriod, IsNotFoundWhileTheEndpointIsNotActive) {
  for (const std::uint32_t state : {kDeviceDisabled, kDeviceNotPresent, kDeviceUnplugged}) {
    machine.endpoints().set_state(sim::kVirtualMic, state);
    EXPECT_EQ(get(), status_from_error(1168)) << state;
  }
}

TEST_F(VirtualPeriod, IsNotFoundWithoutAnyEndpoint) {
  for (const char* id : {sim::kVirtualMic, sim::kMicArray, sim::kHeadsetMic}) machine.endpoints().remove(id);
  EXPECT_EQ(get(), status_from_error(1168));
}

TEST_F(VirtualPeriod, OfAnEndpointWhoseNameCannotBeReadIsNotTaken) {
  for (const Step step : {Step::endpoint_open_properties, Step::endpoint_property_value}) {
    machine.script().fail(step, kGone);
    EXPECT_EQ(get(), status_from_error(1168));
  }
  name_like_the_relay(sim::kHeadsetMic);
  machine.script().fail(Step::endpoint_property_value, kGone);
  EXPECT_EQ(get(), kOk);
  EXPECT_EQ(frames, 103u);
}

TEST_F(VirtualPeriod, FailsWithTheEnumerationTheActivationOrTheQuestion) {
  name_like_the_relay(sim::kHeadsetMic);  // which isn't asked in place of the first
  for (const Step step : {Step::endpoints_list, Step::endpoint_activate_client, Step::client_engine_period}) {
    machine.script().fail(step, kGone);
    EXPECT_EQ(get(), kGone) << to_string(step);
    EXPECT_EQ(frames, 7u);
  }
  EXPECT_EQ(machine.leaks().audio_clients, 0u);
}

}  // namespace
}  // namespace sonivo::test
