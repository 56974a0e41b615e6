#include "platform/linux/fx_properties.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/text.h"
#include "platform/control_requests.h"
#include "platform/fx_requests.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/events.h"
#include "running_driver.h"

namespace sonivo::linux {
namespace {

using control::FxHome;

constexpr PropertyKey kKey{{0x92925271, 0x0380, 0x4E57, {0x86, 0x6B, 0x80, 0xF4, 0x23, 0x36, 0x19, 0x19}}, 660};
constexpr const char* kMicrophone = "{0.0.1.00000000}.{\u30de\u30a4\u30af}";
constexpr const char* kGuid = "{0A1B2C3D-0001-0002-0304-05060708090A}";

class NamedEndpoint final : public Endpoint {
 public:
  Status id(std::string& id) override {
    id = kMicrophone;
    return kOk;
  }
  Status open_properties(std::unique_ptr<PropertyStore>&) override { return kFail; }
  Status activate_audio_client(std::unique_ptr<AudioClient>&) override { return kFail; }
  Status activate_volume(std::shared_ptr<EndpointVolume>&) override { return kFail; }
};

class ControlFxPropertiesTest : public testing::Test {
 protected:
  ControlFxPropertiesTest() { set(FxHome::device_properties, control::kEndpointGuidKey, control::kTypeText, kGuid); }

  void set(FxHome home, const PropertyKey& key, std::uint32_t type, std::string_view bytes,
           const char* endpoint = kMicrophone) {
    control::FxAddress address{.home = home, .pid = key.pid, .fmtid = key.fmtid};
    to_utf16(endpoint).copy(address.endpoint.data(), 259);
    std::vector<std::byte> input(sizeof address + sizeof type + bytes.size());
    std::memcpy(input.data(), &address, sizeof address);
    std::memcpy(input.data() + sizeof address, &type, sizeof type);
    std::memcpy(input.data() + sizeof address + sizeof type, bytes.data(), bytes.size());
    request(control::NSV_SET_FX_PROPERTY, input);
  }
  void request(std::uint32_t code, std::span<const std::byte> input) {
    Error why = error::kNone;
    const auto device = bus_.open(driver_.path(), Sharing::shared, Completion::synchronous, why);
    ASSERT_NE(device, nullptr);
    std::uint32_t transferred = 0;
    ASSERT_EQ(device->control_now(code, input, {}, transferred), error::kNone);
  }
  void set_number(std::uint32_t code, std::uint32_t value) { request(code, std::as_bytes(std::span(&value, 1))); }
  std::unique_ptr<FxWatch> watch() {
    std::unique_ptr<FxWatch> watch;
    EXPECT_EQ(fx_.open_watch(to_lower_ascii(kGuid), watch), error::kNone);
    return watch;
  }
  /// Its connection, by which it has told of itself.
  std::shared_ptr<Device> start_service() {
    Error why = error::kNone;
    auto service = bus_.open(driver_.path(), Sharing::shared, Completion::overlapped, why);
    static control::EventRecord event;
    static Overlapped wait;
    EXPECT_EQ(
        service->control(control::NSV_SERVICE_EVENT_NOTIFY, {}, std::as_writable_bytes(std::span(&event, 1)), wait),
        error::kIoPending);
    std::uint32_t transferred = 0;
    EXPECT_EQ(service->control_now(control::NSV_PUBLISH_REPORT, std::as_bytes(std::span("{}", 2)), {}, transferred),
              error::kNone);
    return service;
  }
  bool is_set(std::uint32_t limit_ms = 10'000) {
    const std::array all{changed_.get()};
    return events_.wait_any(all, limit_ms).index.has_value();
  }

  test::TemporaryFolder home_;
  test::RunningDriver driver_{home_};
  ControlBus bus_{driver_.path()};
  ControlFxProperties fx_{bus_};
  DescriptorEvents events_;
  std::unique_ptr<Event> changed_ = events_.create(Reset::automatic);
};

TEST_F(ControlFxPropertiesTest, EveryTypeIsReadFromItsHome) {
  set(FxHome::user_store, kKey, control::kTypeNumber, std::string_view("\x07\x01\0\0", 4));
  set(FxHome::effect_store, kKey, control::kTypeBlob, std::string_view("\0\xff", 2));
  NamedEndpoint endpoint;
  std::unique_ptr<PropertyStore> store;
  std::unique_ptr<PolicyConfig> policy;
  ASSERT_EQ(fx_.open_user_store(endpoint, control::kCaptureEffect, store), kOk);
  ASSERT_EQ(fx_.policy_config(policy), kOk);
  PropertyValue value;
  ASSERT_EQ(store->value(kKey, value), kOk);
  EXPECT_EQ(std::get<std::uint32_t>(value), 263u);
  ASSERT_EQ(policy->property_value(kMicrophone, true, kKey, value), kOk);
  EXPECT_EQ(std::get<std::vector<std::byte>>(value), (std::vector{std::byte{0}, std::byte{0xFF}}));
  ASSERT_EQ(policy->property_value(kMicrophone, false, control::kEndpointGuidKey, value), kOk);
  EXPECT_EQ(std::get<std::string>(value), kGuid);
  set(FxHome::effect_store, kKey, 11, "\1");
  ASSERT_EQ(policy->property_value(kMicrophone, true, kKey, value), kOk);
  EXPECT_EQ(std::get<ForeignValue>(value).vt, 11u);
  ASSERT_EQ(policy->property_value(kMicrophone, false, kKey, value), kOk);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(value));
  ASSERT_EQ(policy->property_value("another", true, kKey, value), kOk);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(value));
}

TEST_F(ControlFxPropertiesTest, AValueOfTheMostBytesIsReadWhole) {
  std::string blob(control::kMaxFxValueBytes, 'x');
  blob.back() = 'y';
  set(FxHome::user_store, kKey, control::kTypeText, blob);
  NamedEndpoint endpoint;
  std::unique_ptr<PropertyStore> store;
  ASSERT_EQ(fx_.open_user_store(endpoint, control::kCaptureEffect, store), kOk);
  PropertyValue value;
  ASSERT_EQ(store->value(kKey, value), kOk);
  EXPECT_EQ(std::get<std::string>(value), blob);
}

TEST_F(ControlFxPropertiesTest, AnotherEffectHasNoStore) {
  NamedEndpoint endpoint;
  std::unique_ptr<PropertyStore> store;
  EXPECT_EQ(fx_.open_user_store(endpoint, Guid{}, store), kNoInterface);
}

TEST_F(ControlFxPropertiesTest, NothingOpensWithoutADriver) {
  driver_.stop();
  NamedEndpoint endpoint;
  std::unique_ptr<PropertyStore> store;
  std::unique_ptr<PolicyConfig> policy;
  std::unique_ptr<FxWatch> watch;
  EXPECT_EQ(fx_.open_user_store(endpoint, control::kCaptureEffect, store), status_from_error(error::kFileNotFound));
  EXPECT_EQ(fx_.policy_config(policy), status_from_error(error::kFileNotFound));
  EXPECT_EQ(fx_.open_watch(kGuid, watch), error::kFileNotFound);
}

TEST_F(ControlFxPropertiesTest, AnEndpointThatNobodyKnowsIsNotFound) {
  std::unique_ptr<FxWatch> watch;
  EXPECT_EQ(fx_.open_watch("{00000000-0000-0000-0000-000000000000}", watch), error::kFileNotFound);
  EXPECT_EQ(watch, nullptr);
}

TEST_F(ControlFxPropertiesTest, AChangeSetsTheEventOnce) {
  const auto watch = this->watch();
  ASSERT_EQ(watch->arm(changed_.get()), kOk);
  set(FxHome::effect_store, kKey, control::kTypeText, "elsewhere", "another");
  set(FxHome::device_properties, kKey, control::kTypeText, "a device property");
  EXPECT_FALSE(is_set(20));
  set(FxHome::effect_store, kKey, control::kTypeText, "one");
  EXPECT_TRUE(is_set());
  set(FxHome::effect_store, kKey, control::kTypeText, "two");
  EXPECT_FALSE(is_set(20));
  ASSERT_EQ(watch->arm(changed_.get()), kOk);  // for the change that was not told
  EXPECT_TRUE(is_set());
  ASSERT_EQ(watch->arm(changed_.get()), kOk);
  EXPECT_FALSE(is_set(20));
}

TEST_F(ControlFxPropertiesTest, AChangeBetweenOpeningAndArmingCounts) {
  const auto watch = this->watch();
  set(FxHome::user_store, kKey, control::kTypeText, "one");
  ASSERT_EQ(watch->arm(changed_.get()), kOk);
  EXPECT_TRUE(is_set());
}

TEST_F(ControlFxPropertiesTest, AChangedSettingCounts) {
  const auto watch = this->watch();
  ASSERT_EQ(watch->arm(changed_.get()), kOk);
  set_number(control::SetAispeechenhanceRegDialog_Open_MTG, 1);
  EXPECT_TRUE(is_set());
  ASSERT_EQ(watch->arm(changed_.get()), kOk);
  set_number(control::SetAispeechenhanceRegDialog_Open_MTG, 1);
  EXPECT_FALSE(is_set(20));
}

TEST_F(ControlFxPropertiesTest, ArmingAgainMovesTheSignal) {
  const auto watch = this->watch();
  const auto other = events_.create(Reset::manual);
  ASSERT_EQ(watch->arm(other.get()), kOk);
  ASSERT_EQ(watch->arm(changed_.get()), kOk);
  set(FxHome::user_store, kKey, control::kTypeText, "one");
  EXPECT_TRUE(is_set());
  const std::array all{other.get()};
  EXPECT_FALSE(events_.wait_any(all, 0).index);
  EXPECT_EQ(watch->arm(nullptr), kInvalidArgument);
}

TEST_F(ControlFxPropertiesTest, AWatchGoesOnWithTheNextDriverOnceTheServiceHasTold) {
  const auto watch = this->watch();
  ASSERT_EQ(watch->arm(changed_.get()), kOk);
  for (const bool is_armed : {true, false}) {
    driver_.stop();
    EXPECT_FALSE(is_set(20)) << "there is nobody to be asked";
    if (!is_armed) {
      ASSERT_EQ(watch->arm(changed_.get()), kOk);
    }
    driver_.start();
    EXPECT_FALSE(is_set(700)) << "the service can't be asked";
    const auto service = start_service();
    EXPECT_TRUE(is_set());
    ASSERT_EQ(watch->arm(changed_.get()), kOk);
    EXPECT_FALSE(is_set(20));
    set(FxHome::user_store, kKey, control::kTypeText, is_armed ? "one" : "two");
    EXPECT_TRUE(is_set());
  }
}

TEST_F(ControlFxPropertiesTest, AWatchEndsWhileThereIsNoDriver) {
  const auto watch = this->watch();
  ASSERT_EQ(watch->arm(changed_.get()), kOk);
  driver_.stop();
  EXPECT_FALSE(is_set(20));
}

}  // namespace
}  // namespace sonivo::linux
