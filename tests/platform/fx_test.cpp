#include "platform/sim/fx.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/sim/machine.h"

namespace sonivo::sim {
namespace {

constexpr PropertyKey kKey{{1, 2, 3, {}}, 571};
constexpr const char* kMicGuid = "{1f6a0c2e-3b57-4d1c-9a60-5c0d7e2b8a02}";

class FxTest : public testing::Test {
 protected:
  std::shared_ptr<Endpoint> mic() {
    std::vector<std::shared_ptr<Endpoint>> list;
    machine.endpoints().list(DataFlow::capture, kDeviceActive, list);
    return list.at(1);
  }
  PropertyValue by_policy(bool effect_store, const PropertyKey& key) {
    std::unique_ptr<PolicyConfig> policy;
    PropertyValue value;
    EXPECT_EQ(fx.policy_config(policy), kOk);
    EXPECT_EQ(policy->property_value(kMicArray, effect_store, key, value), kOk);
    return value;
  }
  bool signalled(const std::unique_ptr<Event>& event) {
    const std::array<Event*, 1> events{event.get()};
    return machine.scheduler().wait_any(events, 0).index.has_value();
  }

  SimMachine machine;
  SimFxProperties& fx = machine.fx();
};

TEST_F(FxTest, TheThreeHomesAreApart) {
  fx.set(FxHome::user_store, kMicArray, kKey, 1u);
  fx.set(FxHome::effect_store, kMicArray, kKey, std::string("two"));
  std::unique_ptr<PropertyStore> store;
  PropertyValue value;
  ASSERT_EQ(fx.open_user_store(*mic(), kCaptureEffect, store), kOk);
  ASSERT_EQ(store->value(kKey, value), kOk);
  EXPECT_EQ(std::get<std::uint32_t>(value), 1u);
  EXPECT_EQ(std::get<std::string>(by_policy(true, kKey)), "two");
  EXPECT_TRUE(std::holds_alternative<std::monostate>(by_policy(false, kKey)));
}

TEST_F(FxTest, AnEffectValueIsInBothEffectHomes) {
  fx.set_effect(kMicArray, kKey, std::vector<std::byte>(3));
  std::unique_ptr<PropertyStore> store;
  PropertyValue value;
  fx.open_user_store(*mic(), kCaptureEffect, store);
  store->value(kKey, value);
  EXPECT_EQ(std::get<std::vector<std::byte>>(value), std::vector<std::byte>(3));
  EXPECT_EQ(std::get<std::vector<std::byte>>(by_policy(true, kKey)), std::vector<std::byte>(3));
}

TEST_F(FxTest, OnlyTheCaptureEffectOfAMachineThatHasStoresHasOne) {
  std::unique_ptr<PropertyStore> store;
  EXPECT_EQ(fx.open_user_store(*mic(), kKey.fmtid, store), kNoInterface);
  fx.set_user_store(kMicArray, false);
  EXPECT_EQ(fx.open_user_store(*mic(), kCaptureEffect, store), kNoInterface);
  SimMachine older({.fx_user_store = false});
  EXPECT_EQ(older.fx().open_user_store(*mic(), kCaptureEffect, store), kNoInterface);
}

TEST_F(FxTest, TheEndpointGuidIsAValueOfItsOwn) {
  EXPECT_EQ(std::get<std::string>(by_policy(true, kEndpointGuidKey)), kMicGuid);
}

TEST_F(FxTest, AnArmedWatchSignalsOnceForAChangeOfItsEndpoint) {
  std::unique_ptr<FxWatch> watch;
  ASSERT_EQ(fx.open_watch("{1F6A0C2E-3B57-4D1C-9A60-5C0D7E2B8A02}", watch), error::kNone);
  const auto event = machine.scheduler().create(Reset::automatic);
  EXPECT_EQ(watch->arm(event.get()), kOk);
  fx.set(FxHome::effect_store, kHeadsetMic, kKey, 1u);
  fx.set(FxHome::device_properties, kMicArray, kKey, 1u);
  EXPECT_FALSE(signalled(event)) << "no change of this endpoint's effects";
  fx.set(FxHome::user_store, kMicArray, kKey, 1u);
  EXPECT_TRUE(signalled(event));
  fx.set(FxHome::user_store, kMicArray, kKey, 2u);
  EXPECT_FALSE(signalled(event)) << "one arm, one signal";
}

TEST_F(FxTest, AChangeWhileNothingIsArmedSignalsAtTheNextArming) {
  std::unique_ptr<FxWatch> watch;
  ASSERT_EQ(fx.open_watch("{1f6a0c2e-3b57-4d1c-9a60-5c0d7e2b8a02}", watch), error::kNone);
  const auto event = machine.scheduler().create(Reset::automatic);
  fx.set(FxHome::effect_store, kMicArray, kKey, 1u);
  EXPECT_FALSE(signalled(event));
  EXPECT_EQ(watch->arm(event.get()), kOk);
  EXPECT_TRUE(signalled(event));
  EXPECT_EQ(watch->arm(event.get()), kOk);
  EXPECT_FALSE(signalled(event)) << "told already";
}

TEST_F(FxTest, AWatchOfAnUnknownEndpointOrWithoutAnEventIsRefused) {
  std::unique_ptr<FxWatch> watch;
  EXPECT_EQ(fx.open_watch("{00000000-0000-0000-0000-000000000000}", watch), error::kFileNotFound);
  ASSERT_EQ(fx.open_watch(kMicGuid, watch), error::kNone);
  EXPECT_EQ(watch->arm(nullptr), kInvalidArgument);
}

TEST_F(FxTest, EveryOperationFailsAsScripted) {
  const auto endpoint = mic();
  std::unique_ptr<PropertyStore> store, other_store;
  std::unique_ptr<PolicyConfig> policy, other_policy;
  std::unique_ptr<FxWatch> watch, other_watch;
  fx.open_user_store(*endpoint, kCaptureEffect, store);
  fx.policy_config(policy);
  fx.open_watch(kMicGuid, watch);
  PropertyValue value;
  const std::vector<std::pair<Step, std::function<Status()>>> operations = {
      {Step::fx_user_store, [&] { return fx.open_user_store(*endpoint, kCaptureEffect, other_store); }},
      {Step::fx_user_value, [&] { return store->value(kKey, value); }},
      {Step::fx_policy_config, [&] { return fx.policy_config(other_policy); }},
      {Step::fx_policy_value, [&] { return policy->property_value(kMicArray, true, kKey, value); }},
      {Step::fx_open_watch, [&] { return static_cast<Status>(fx.open_watch(kMicGuid, other_watch)); }},
      {Step::fx_arm, [&] { return watch->arm(nullptr); }},
  };
  for (const auto& [step, operation] : operations) {
    machine.script().fail(step, kFail);
    EXPECT_EQ(operation(), kFail) << to_string(step);
  }
  EXPECT_EQ(machine.leaks().fx_objects, 3u);
}

}  // namespace
}  // namespace sonivo::sim
