// Which endpoint GetFxCapturePropertiesValue asks.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/sim/machine.h"
#include "relay/effect_properties.h"
#include "support/trace_log.h"

namespace sonivo::test {
namespace {

using sim::Step;

constexpr PropertyKey kKey = PKEY_NVC_MTGMIC_KC_Param;

/// A machine whose only capture endpoints are those added, each with a value of its own to be told by.
class EffectPropertyEndpoint : public testing::Test {
 protected:
  EffectPropertyEndpoint() {
    for (const char* id : {sim::kVirtualMic, sim::kMicArray, sim::kHeadsetMic}) machine.endpoints().remove(id);
  }

  /// Adds an endpoint that stores the number.
  std::string add(const std::string& name, std::uint32_t stored, std::uint32_t state = kDeviceActive) {
    const std::string id = add_empty(name, state);
    machine.fx().set_effect(id, kKey, stored);
    return id;
  }
  std::string add_empty(const std::string& name, std::uint32_t state = kDeviceActive) {
    const std::string id = "{0.0.1.00000000}.{" + std::to_string(++added) + "}";
    machine.endpoints().add({.id = id, .name = name, .flow = DataFlow::capture, .state = state});
    return id;
  }
  Status get() {
    std::uint32_t cb = sizeof value;
    value = 0xEE;
    return GetFxCapturePropertiesValue(machine.seams(), kKey, &value, &cb);
  }

  sim::SimMachine machine;
  int added = 0;
  std::uint8_t value = 0;
};

TEST_F(EffectPropertyEndpoint, IsTheIntelArrayByItsJapaneseName) {
  add("マイク配列 (デジタルマイク向けインテル® スマート・サウンド・テクノロジー)", 7);
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(value, 7);
}

TEST_F(EffectPropertyEndpoint, IsTheRealtekHighDefinitionAudio) {
  add("Microphone (Realtek High Definition Audio)", 7);
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(value, 7);
}

TEST_F(EffectPropertyEndpoint, IsARealtekMicrophoneOrAudioJack) {
  for (const char* name : {"Realtek Microphone", "Mic (Realtek Audio Jack)"}) {
    const std::string id = add(name, 7);
    EXPECT_EQ(get(), 0) << name;
    EXPECT_EQ(value, 7) << name;
    machine.endpoints().remove(id);
  }
}

TEST_F(EffectPropertyEndpoint, IsNoExternalOneOfTheArraysNames) {
  for (const char* name :
       {"外付けマイク (デジタルマイク向けインテル)", "外付けマイク (Realtek High Definition Audio)"}) {
    const std::string id = add(name, 7);
    EXPECT_EQ(get(), 1168) << name;
    EXPECT_EQ(value, 0xEE) << name;
    machine.endpoints().remove(id);
  }
}

TEST_F(EffectPropertyEndpoint, AnExternalOneOfTheArraysNamesFallsThroughToTheRealtekTest) {
  for (const char* name : {"外付け デジタルマイク向けインテル Realtek Microphone",
                           "外付け Realtek High Definition Audio Realtek Audio Jack"}) {
    const std::string id = add(name, 7);
    EXPECT_EQ(get(), 0) << name;
    EXPECT_EQ(value, 7) << name;
    machine.endpoints().remove(id);
  }
}

TEST_F(EffectPropertyEndpoint, TheRealtekTestHasNoExclusion) {
  add("外付け Realtek Microphone", 7);
  EXPECT_EQ(get(), 0);
}

TEST_F(EffectPropertyEndpoint, NamesAreComparedWithTheirCase) {
  for (const char* name : {"realtek high definition audio", "Realtek microphone", "REALTEK AUDIO JACK"}) {
    add(name, 7);
    EXPECT_EQ(get(), 1168) << name;
  }
}

TEST_F(EffectPropertyEndpoint, NoOtherNameIsAsked) {
  for (const char* name : {"Microphone Array (Intel Smart Sound Technology for Digital Microphones)", "USB Headset", "",
                           "Realtek", "Microphone (Norvell Audio Relay)"}) {
    add(name, 7);
    EXPECT_EQ(get(), 1168) << name;
  }
  EXPECT_EQ(machine.script().count(Step::fx_user_store), 0u);
}

TEST_F(EffectPropertyEndpoint, OfAMachineWithoutCaptureEndpointsIsNotFound) { EXPECT_EQ(get(), 1168); }

TEST_F(EffectPropertyEndpoint, MayBeDisabledOrNotPresentButNotUnplugged) {
  const std::string id = add("Realtek Microphone", 7);
  for (const std::uint32_t state : {kDeviceActive, kDeviceDisabled, kDeviceNotPresent}) {
    machine.endpoints().set_state(id, state);
    EXPECT_EQ(get(), 0) << state;
  }
  machine.endpoints().set_state(id, kDeviceUnplugged);
  EXPECT_EQ(get(), 1168);
}

TEST_F(EffectPropertyEndpoint, IsNeverARenderEndpoint) {
  machine.fx().set_effect(sim::kSpeakers, kKey, std::uint32_t{7});  // "Speakers (Realtek High Definition Audio)"
  EXPECT_EQ(get(), 1168);
}

TEST_F(EffectPropertyEndpoint, OfTwoThatMatchTheFirstThatHoldsTheValueWins) {
  add("Realtek Microphone", 7);
  add("Realtek Audio Jack", 8);
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(value, 7);
}

TEST_F(EffectPropertyEndpoint, OneWithoutTheValueIsPassedOver) {
  add_empty("Realtek Microphone");
  add("USB Headset", 9);
  add("Realtek Audio Jack", 8);
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(value, 8);
}

TEST_F(EffectPropertyEndpoint, AResultOtherThanNotFoundEndsTheSearch) {
  const std::string first = add_empty("Realtek Microphone");
  machine.fx().set_effect(first, kKey, ForeignValue{5});
  add("Realtek Audio Jack", 8);
  EXPECT_EQ(get(), 13);
  EXPECT_EQ(value, 0xEE);
}

TEST_F(EffectPropertyEndpoint, AFailureEndsTheSearch) {
  add("Realtek Microphone", 7);
  add("Realtek Audio Jack", 8);
  machine.script().fail(Step::fx_user_value, status_bits(0x80004002));
  EXPECT_EQ(get(), status_bits(0x80004002));
  EXPECT_EQ(value, 0xEE);
}

TEST_F(EffectPropertyEndpoint, WhoseNameCannotBeReadIsSkipped) {
  for (const Step step : {Step::endpoint_open_properties, Step::endpoint_property_value}) {
    add("Realtek Microphone", 7);
    const std::string second = add("Realtek Audio Jack", 8);
    machine.script().fail(step, status_bits(0x88890004));
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(value, 8);
    machine.endpoints().remove("{0.0.1.00000000}.{" + std::to_string(added - 1) + "}");
    machine.endpoints().remove(second);
  }
}

TEST_F(EffectPropertyEndpoint, TheOnlyOneWhoseNameCannotBeReadIsNotFound) {
  add("Realtek Microphone", 7);
  machine.script().fail(Step::endpoint_property_value, status_bits(0x88890004));
  EXPECT_EQ(get(), 1168);
}

TEST_F(EffectPropertyEndpoint, AFailedEnumerationIsTheAnswer) {
  add("Realtek Microphone", 7);
  machine.script().fail(Step::endpoints_list, status_bits(0x88890010));
  EXPECT_EQ(get(), status_bits(0x88890010));
}

TEST_F(EffectPropertyEndpoint, ANullSizeIsRefusedWithATextBeforeAnythingIsAsked) {
  add("Realtek Microphone", 7);
  const TraceLog log;
  value = 0xEE;
  EXPECT_EQ(GetFxCapturePropertiesValue(machine.seams(), kKey, &value, nullptr), 160);
  EXPECT_THAT(log.traces(), testing::ElementsAre("GetFxCapturePropertiesValue Arguments_Failed(lpcbData)."));
  EXPECT_EQ(value, 0xEE);
  EXPECT_EQ(machine.script().count(Step::endpoints_list), 0u);
}

}  // namespace
}  // namespace sonivo::test
