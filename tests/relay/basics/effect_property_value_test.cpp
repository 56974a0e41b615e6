// What GetFxPropertiesValueEx2 makes of each kind of value, and by which route it gets there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/sim/machine.h"
#include "relay/effect_properties.h"
#include "support/trace_log.h"

namespace sonivo::test {
namespace {

using sim::FxHome;
using sim::kMicArray;
using sim::Step;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr PropertyKey kKey = PKEY_NVC_AI_Strength;

std::vector<std::byte> blob(std::size_t size) {
  std::vector<std::byte> bytes;
  for (std::size_t i = 0; i < size; ++i) bytes.push_back(static_cast<std::byte>(i + 1));
  return bytes;
}

class EffectProperty : public testing::Test {
 protected:
  /// The value of `key` at the microphone array, into `buffer` with the capacity `cb`.
  Status get(const PropertyKey& key = kKey) {
    std::shared_ptr<Endpoint> endpoint;
    machine.endpoints().default_endpoint(DataFlow::capture, Role::console, endpoint);
    return GetFxPropertiesValueEx2(machine.seams(), *endpoint, kMicArray, key, buffer.data(), &cb);
  }
  Status get(const PropertyValue& value) {
    machine.fx().set_effect(kMicArray, kKey, value);
    return get();
  }
  char16_t unit(std::size_t i) const {
    return static_cast<char16_t>(std::to_integer<unsigned>(buffer[2 * i]) | std::to_integer<unsigned>(buffer[2 * i + 1])
                                                                                << 8);
  }

  sim::SimMachine machine;
  TraceLog log;
  std::array<std::byte, 16> buffer = filled();
  std::uint32_t cb = 16;

 private:
  static std::array<std::byte, 16> filled() {
    std::array<std::byte, 16> bytes;
    bytes.fill(std::byte{0xEE});
    return bytes;
  }
};

constexpr std::byte kUntouched{0xEE};

TEST_F(EffectProperty, ANullSizeIsRefused) {
  std::shared_ptr<Endpoint> endpoint;
  machine.endpoints().default_endpoint(DataFlow::capture, Role::console, endpoint);
  EXPECT_EQ(GetFxPropertiesValueEx2(machine.seams(), *endpoint, kMicArray, kKey, buffer.data(), nullptr), 160);
  EXPECT_THAT(buffer, Each(kUntouched));
}

TEST_F(EffectProperty, AnEmptyValueIsNotFound) {
  EXPECT_EQ(get(PropertyValue()), 1168);
  EXPECT_THAT(buffer, Each(kUntouched));
}

TEST_F(EffectProperty, AValueThatWasNeverSetIsNotFound) { EXPECT_EQ(get(), 1168); }

TEST_F(EffectProperty, ANumberGivesItsLowByteOnly) {
  EXPECT_EQ(get(std::uint32_t{0x04030201}), 0);
  EXPECT_EQ(buffer[0], std::byte{0x01});
  EXPECT_THAT(std::vector(buffer.begin() + 1, buffer.end()), Each(kUntouched));
  EXPECT_EQ(cb, 16u);
}

TEST_F(EffectProperty, ATextIsCopiedWithItsTerminator) {
  cb = 8;
  EXPECT_EQ(get(std::string("aéマ")), 0);
  EXPECT_EQ(unit(0), u'a');
  EXPECT_EQ(unit(1), u'é');
  EXPECT_EQ(unit(2), u'マ');
  EXPECT_EQ(unit(3), u'\0');
  EXPECT_EQ(buffer[8], kUntouched);
}

TEST_F(EffectProperty, ATextIsLimitedToTheSizeInCharacters) {
  cb = 3;
  EXPECT_EQ(get(std::string("abcdef")), 0);
  EXPECT_EQ(unit(0), u'a');
  EXPECT_EQ(unit(2), u'c');
  EXPECT_EQ(buffer[6], kUntouched);
}

TEST_F(EffectProperty, ATextThatFillsTheLimitHasNoTerminator) {
  cb = 3;
  EXPECT_EQ(get(std::string("abc")), 0);
  EXPECT_EQ(unit(2), u'c');
  EXPECT_EQ(buffer[6], kUntouched);
}

TEST_F(EffectProperty, ABlobThatFitsIsCopiedAndTheSizeLeft) {
  EXPECT_EQ(get(blob(5)), 0);
  EXPECT_EQ(std::vector(buffer.begin(), buffer.begin() + 5), blob(5));
  EXPECT_EQ(buffer[5], kUntouched);
  EXPECT_EQ(cb, 16u);
  EXPECT_THAT(log.traces(), IsEmpty());
}

TEST_F(EffectProperty, ABlobOfExactlyTheSizeFits) {
  cb = 5;
  EXPECT_EQ(get(blob(5)), 0);
  EXPECT_THAT(log.traces(), IsEmpty());
}

TEST_F(EffectProperty, ALargerBlobFillsTheBufferAndSaysThatThereIsMore) {
  cb = 4;
  EXPECT_EQ(get(blob(5)), 234);
  EXPECT_EQ(std::vector(buffer.begin(), buffer.begin() + 4), blob(4));
  EXPECT_EQ(buffer[4], kUntouched);
  EXPECT_EQ(cb, 4u);
  EXPECT_THAT(log.traces(), ElementsAre("GetFxPropertiesValueEx2_GetPropertyValue size error 4 : 5]"));
}

TEST_F(EffectProperty, AnEmptyBlobIsAValue) {
  EXPECT_EQ(get(blob(0)), 0);
  EXPECT_THAT(buffer, Each(kUntouched));
}

TEST_F(EffectProperty, AnyOtherTypeIsInvalidData) {
  for (const std::uint16_t vt : std::initializer_list<std::uint16_t>{1, 3, 5, 11, 18, 20, 30, 72}) {
    EXPECT_EQ(get(ForeignValue{vt}), 13) << vt;
  }
  EXPECT_THAT(buffer, Each(kUntouched));
}

// Each home holds a number of its own, so that the answer tells the route.
class EffectPropertyRoute : public EffectProperty {
 protected:
  EffectPropertyRoute() {
    for (const PropertyKey& key : {kKey, PKEY_AudioEndpoint_GUID}) {
      machine.fx().set(FxHome::user_store, kMicArray, key, std::uint32_t{1});
      machine.fx().set(FxHome::effect_store, kMicArray, key, std::uint32_t{2});
      machine.fx().set(FxHome::device_properties, kMicArray, key, std::uint32_t{3});
    }
  }
};

TEST_F(EffectPropertyRoute, IsTheUsersStoreOfTheEffectWhereThereIsOne) {
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(buffer[0], std::byte{1});
}

TEST_F(EffectPropertyRoute, IsTheEffectStorePastItWhereThereIsNone) {
  machine.fx().set_user_store(kMicArray, false);
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(buffer[0], std::byte{2});
}

TEST_F(EffectPropertyRoute, AnyFailureToOpenTheUsersStoreLeadsPastIt) {
  machine.script().fail(Step::fx_user_store, status_bits(0x80070005));
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(buffer[0], std::byte{2});
}

TEST_F(EffectPropertyRoute, OfTheEndpointsGuidIsPastTheUsersStore) {
  EXPECT_EQ(get(PKEY_AudioEndpoint_GUID), 0);
  EXPECT_EQ(buffer[0], std::byte{2});
}

TEST_F(EffectPropertyRoute, AnotherPidOfTheGuidsFormatIsNoException) {
  const PropertyKey key{PKEY_AudioEndpoint_GUID.fmtid, 5};
  machine.fx().set(FxHome::user_store, kMicArray, key, std::uint32_t{1});
  machine.fx().set(FxHome::effect_store, kMicArray, key, std::uint32_t{2});
  EXPECT_EQ(get(key), 0);
  EXPECT_EQ(buffer[0], std::byte{1});
}

TEST_F(EffectPropertyRoute, AnEmptyUsersStoreIsNotMadeUpForByTheOther) {
  machine.fx().set(FxHome::user_store, kMicArray, kKey, PropertyValue());
  EXPECT_EQ(get(), 1168);
}

TEST_F(EffectPropertyRoute, FailsWithoutAPolicyOnEitherRoute) {
  machine.script().fail_always(Step::fx_policy_config, status_bits(0x80040154));
  EXPECT_EQ(get(), status_bits(0x80040154));
  machine.fx().set_user_store(kMicArray, false);
  EXPECT_EQ(get(), status_bits(0x80040154));
  EXPECT_THAT(buffer, Each(kUntouched));
}

TEST_F(EffectPropertyRoute, AFailedReadIsTheAnswerAndLeavesTheBuffer) {
  machine.script().fail(Step::fx_user_value, status_bits(0x88890004));
  EXPECT_EQ(get(), status_bits(0x88890004));
  machine.fx().set_user_store(kMicArray, false);
  machine.script().fail(Step::fx_policy_value, status_bits(0x80070002));
  EXPECT_EQ(get(), status_bits(0x80070002));
  EXPECT_THAT(buffer, Each(kUntouched));
}

TEST_F(EffectPropertyRoute, HoldsOnToNothing) {
  get();
  get(PKEY_AudioEndpoint_GUID);
  EXPECT_EQ(machine.leaks().fx_objects, 0u);
}

TEST(EffectPropertyKeys, AreThoseOfTheStoredValues) {
  EXPECT_EQ(to_text(PKEY_NVC_MTGMIC_KC_Param.fmtid), "{654091d5-0ac4-4fc2-b6d4-c9e81f24816e}");
  EXPECT_EQ(PKEY_NVC_MTGMIC_KC_Param.pid, 551u);
  EXPECT_EQ(to_text(PKEY_NVC_MTGMIC_BF_KC_Param.fmtid), "{7ce50538-9cfe-4ec9-aa86-113609b25094}");
  EXPECT_EQ(PKEY_NVC_MTGMIC_BF_KC_Param.pid, 571u);
  EXPECT_EQ(to_text(PKEY_NVC_AI_Strength.fmtid), "{92925271-0380-4e57-866b-80f423361919}");
  EXPECT_EQ(PKEY_NVC_AI_Strength.pid, 660u);
  EXPECT_EQ(to_text(PKEY_AudioEndpoint_GUID.fmtid), "{1da5d803-d492-4edd-8c23-e0c0ffee7f0e}");
  EXPECT_EQ(PKEY_AudioEndpoint_GUID.pid, 4u);
  EXPECT_EQ(to_text(kEffectClass), "{06b604e5-c78e-4283-bc39-7cb44e727fc3}");
}

}  // namespace
}  // namespace sonivo::test
