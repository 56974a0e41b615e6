#include "platform/sim/endpoints.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/client_status.h"
#include "platform/sim/machine.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;

constexpr Guid kContext{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

/// Counts references as a callback object does.
template <class Interface>
class Counted : public Interface {
 public:
  Status QueryInterface(const Guid&, void** object) override {
    *object = nullptr;
    return kNoInterface;
  }
  std::uint32_t AddRef() override { return ++references; }
  std::uint32_t Release() override { return --references; }
  std::uint32_t references = 1;
};

class Listener final : public Counted<IMMNotificationClient> {
 public:
  Status OnDeviceStateChanged(const std::string& id, std::uint32_t state) override {
    return add("state " + std::to_string(state) + " " + id);
  }
  Status OnDeviceAdded(const std::string& id) override { return add("added " + id); }
  Status OnDeviceRemoved(const std::string& id) override { return add("removed " + id); }
  Status OnDefaultDeviceChanged(DataFlow flow, Role role, const std::string& id) override {
    return add("default " + std::to_string(static_cast<int>(flow)) + std::to_string(static_cast<int>(role)) + " " + id);
  }
  Status OnPropertyValueChanged(const std::string& id, const PropertyKey& key) override {
    return add("property " + std::to_string(key.pid) + " " + id);
  }
  std::vector<std::string> calls;

 private:
  Status add(std::string call) {
    calls.push_back(std::move(call));
    return kOk;
  }
};

class VolumeListener final : public Counted<IAudioEndpointVolumeCallback> {
 public:
  explicit VolumeListener(std::function<void()> on_call = [] {}) : on_call_(std::move(on_call)) {}
  Status OnNotify(const AUDIO_VOLUME_NOTIFICATION_DATA* data) override {
    heard.push_back(*data);
    on_call_();
    return kOk;
  }
  std::vector<AUDIO_VOLUME_NOTIFICATION_DATA> heard;

 private:
  std::function<void()> on_call_;
};

class EndpointsTest : public testing::Test {
 protected:
  std::vector<std::shared_ptr<Endpoint>> list(DataFlow flow, std::uint32_t mask = kDeviceActive) {
    std::vector<std::shared_ptr<Endpoint>> found;
    EXPECT_EQ(endpoints.list(flow, mask, found), kOk);
    return found;
  }
  static std::string id_text(const std::shared_ptr<Endpoint>& endpoint) {
    std::string id;
    EXPECT_EQ(endpoint->id(id), kOk);
    return id;
  }
  static std::string name(const std::shared_ptr<Endpoint>& endpoint) {
    std::unique_ptr<PropertyStore> store;
    EXPECT_EQ(endpoint->open_properties(store), kOk);
    PropertyValue value;
    EXPECT_EQ(store->value(PKEY_Device_FriendlyName, value), kOk);
    return std::get<std::string>(value);
  }
  std::vector<std::string> ids(DataFlow flow, std::uint32_t mask = kDeviceActive) {
    std::vector<std::string> found;
    for (const auto& endpoint : list(flow, mask)) found.push_back(id_text(endpoint));
    return found;
  }
  std::shared_ptr<EndpointVolume> volume() {
    std::shared_ptr<EndpointVolume> found;
    EXPECT_EQ(list(DataFlow::capture).at(1)->activate_volume(found), kOk);
    return found;
  }

  SimMachine machine;
  SimEndpoints& endpoints = machine.endpoints();
};

TEST_F(EndpointsTest, TheNotebookHasThePairAndPhysicalEndpointsInOrder) {
  EXPECT_THAT(ids(DataFlow::capture), ElementsAre(kVirtualMic, kMicArray, kHeadsetMic));
  EXPECT_THAT(ids(DataFlow::render), ElementsAre(kVirtualSpeaker, kSpeakers, kHeadphones));
  EXPECT_THAT(name(list(DataFlow::capture)[0]), testing::HasSubstr("Norvell Audio Relay"));
  EXPECT_THAT(name(list(DataFlow::render)[0]), testing::HasSubstr("Norvell Audio Relay"));
  EXPECT_EQ(name(list(DataFlow::capture)[1]), "Microphone Array (Realtek High Definition Audio)");
}

TEST_F(EndpointsTest, ListsThoseInTheAskedStatesOnly) {
  endpoints.set_state(kMicArray, kDeviceDisabled);
  endpoints.set_state(kHeadsetMic, kDeviceUnplugged);
  EXPECT_THAT(ids(DataFlow::capture), ElementsAre(kVirtualMic));
  EXPECT_THAT(ids(DataFlow::capture, kDeviceActive | kDeviceDisabled), ElementsAre(kVirtualMic, kMicArray));
}

TEST_F(EndpointsTest, TheDefaultIsByFlowAndRoleAndMayBeNone) {
  endpoints.set_default(DataFlow::capture, Role::communications, kHeadsetMic);
  std::shared_ptr<Endpoint> endpoint;
  EXPECT_EQ(endpoints.default_endpoint(DataFlow::capture, Role::console, endpoint), kOk);
  EXPECT_EQ(id_text(endpoint), kMicArray);
  EXPECT_EQ(endpoints.default_endpoint(DataFlow::capture, Role::communications, endpoint), kOk);
  EXPECT_EQ(id_text(endpoint), kHeadsetMic);
  endpoints.set_default(DataFlow::render, "");
  EXPECT_EQ(endpoints.default_endpoint(DataFlow::render, Role::console, endpoint), status_from_error(error::kNotFound));
}

TEST_F(EndpointsTest, AllChangesAreToldInOrderOnceTheCallerLetsTimePass) {
  Listener listener;
  ASSERT_EQ(endpoints.register_callback(&listener), kOk);
  endpoints.add({.id = "usb", .name = "USB Microphone", .flow = DataFlow::capture});
  endpoints.set_default(DataFlow::capture, Role::console, "usb");
  endpoints.rename("usb", "Better Microphone");
  endpoints.set_state("usb", kDeviceUnplugged);
  endpoints.remove("usb");
  EXPECT_TRUE(listener.calls.empty());
  machine.run_for(1);
  EXPECT_THAT(listener.calls,
              ElementsAre("added usb", "default 10 usb", "property 14 usb", "state 8 usb", "removed usb"));
  endpoints.unregister_callback(&listener);
}

TEST_F(EndpointsTest, WhatHappenedBeforeRegisteringIsNotTold) {
  Listener early, late;
  endpoints.register_callback(&early);
  endpoints.set_state(kMicArray, kDeviceDisabled);
  endpoints.register_callback(&late);
  machine.run_for(1);
  EXPECT_EQ(early.calls.size(), 1u);
  EXPECT_TRUE(late.calls.empty());
  endpoints.unregister_callback(&early);
  endpoints.unregister_callback(&late);
}

TEST_F(EndpointsTest, NothingIsToldAfterUnregisteringNotEvenWhatWasUnderWay) {
  Listener listener;
  endpoints.register_callback(&listener);
  EXPECT_EQ(listener.references, 2u);
  endpoints.set_state(kMicArray, kDeviceDisabled);
  EXPECT_EQ(endpoints.unregister_callback(&listener), kOk);
  EXPECT_EQ(listener.references, 1u);
  machine.run_for(1);
  EXPECT_TRUE(listener.calls.empty());
  EXPECT_EQ(endpoints.unregister_callback(&listener), status_from_error(error::kNotFound));
}

TEST_F(EndpointsTest, ARemovedEndpointKeepsItsIdAndFailsOtherwise) {
  const auto endpoint = list(DataFlow::capture)[2];
  const auto held_volume = volume();
  endpoints.remove(kHeadsetMic);
  endpoints.remove(kMicArray);
  EXPECT_THAT(ids(DataFlow::capture), ElementsAre(kVirtualMic));
  EXPECT_EQ(id_text(endpoint), kHeadsetMic);
  std::unique_ptr<AudioClient> client;
  std::shared_ptr<EndpointVolume> other_volume;
  std::unique_ptr<PropertyStore> store;
  PropertyValue value;
  bool muted = false;
  EXPECT_EQ(endpoint->activate_audio_client(client), kDeviceInvalidated);
  EXPECT_EQ(endpoint->activate_volume(other_volume), kDeviceInvalidated);
  EXPECT_EQ(endpoint->open_properties(store), kOk);
  EXPECT_EQ(store->value(PKEY_Device_FriendlyName, value), kDeviceInvalidated);
  EXPECT_EQ(held_volume->mute(muted), kDeviceInvalidated);
}

TEST_F(EndpointsTest, EveryOperationFailsAsScripted) {
  const auto endpoint = list(DataFlow::capture)[1];
  const auto of_volume = volume();
  std::unique_ptr<PropertyStore> store;
  endpoint->open_properties(store);
  Listener listener;
  VolumeListener volume_listener;
  std::vector<std::shared_ptr<Endpoint>> found;
  std::shared_ptr<Endpoint> one;
  std::unique_ptr<AudioClient> client;
  std::shared_ptr<EndpointVolume> other_volume;
  std::unique_ptr<PropertyStore> other_store;
  std::string id;
  PropertyValue value;
  bool muted = false;
  float level = 0;
  const std::vector<std::pair<Step, std::function<Status()>>> operations = {
      {Step::endpoints_list, [&] { return endpoints.list(DataFlow::capture, 1, found); }},
      {Step::endpoints_default, [&] { return endpoints.default_endpoint(DataFlow::capture, Role::console, one); }},
      {Step::endpoints_register, [&] { return endpoints.register_callback(&listener); }},
      {Step::endpoints_unregister, [&] { return endpoints.unregister_callback(&listener); }},
      {Step::endpoint_id, [&] { return endpoint->id(id); }},
      {Step::endpoint_open_properties, [&] { return endpoint->open_properties(other_store); }},
      {Step::endpoint_property_value, [&] { return store->value(PKEY_Device_FriendlyName, value); }},
      {Step::endpoint_activate_client, [&] { return endpoint->activate_audio_client(client); }},
      {Step::endpoint_activate_volume, [&] { return endpoint->activate_volume(other_volume); }},
      {Step::volume_mute, [&] { return of_volume->mute(muted); }},
      {Step::volume_set_mute, [&] { return of_volume->set_mute(true, nullptr); }},
      {Step::volume_level, [&] { return of_volume->level_scalar(level); }},
      {Step::volume_set_level, [&] { return of_volume->set_level_scalar(1, nullptr); }},
      {Step::volume_register, [&] { return of_volume->register_callback(&volume_listener); }},
      {Step::volume_unregister, [&] { return of_volume->unregister_callback(&volume_listener); }},
  };
  for (const auto& [step, operation] : operations) {
    machine.script().fail(step, kFail);
    EXPECT_EQ(operation(), kFail) << to_string(step);
  }
  EXPECT_FALSE(machine.endpoint(kMicArray).volume().muted()) << "a failed operation does nothing";
  EXPECT_EQ(endpoints.registered_callbacks(), 0u);
}

TEST_F(EndpointsTest, EverySetIsToldWithItsContextAlsoWhenItChangesNothing) {
  const auto of_mic = volume();
  VolumeListener listener;
  ASSERT_EQ(of_mic->register_callback(&listener), kOk);
  of_mic->set_mute(true, &kContext);
  of_mic->set_mute(true, nullptr);
  of_mic->set_level_scalar(0.75f, &kContext);
  machine.run_for(1);
  ASSERT_EQ(listener.heard.size(), 3u);
  EXPECT_TRUE(listener.heard[0].bMuted);
  EXPECT_EQ(listener.heard[0].fMasterVolume, 0.5f);
  EXPECT_EQ(listener.heard[0].guidEventContext, kContext);
  EXPECT_EQ(listener.heard[1].guidEventContext, Guid{});
  EXPECT_EQ(listener.heard[2].fMasterVolume, 0.75f);
  float level = 0;
  bool muted = false;
  EXPECT_EQ(of_mic->level_scalar(level), kOk);
  EXPECT_EQ(level, 0.75f);
  EXPECT_EQ(of_mic->mute(muted), kOk);
  EXPECT_TRUE(muted);
  EXPECT_EQ(of_mic->set_level_scalar(1.01f, nullptr), kInvalidArgument);
  of_mic->unregister_callback(&listener);
  of_mic->set_mute(false, nullptr);
  machine.run_for(1);
  EXPECT_EQ(listener.heard.size(), 3u);
}

TEST_F(EndpointsTest, UnregisteringWaitsForACallThatIsUnderWay) {
  const auto of_mic = volume();
  bool call_ended = false;
  VolumeListener listener([&] {
    machine.scheduler().sleep_ms(10);
    call_ended = true;
  });
  of_mic->register_callback(&listener);
  of_mic->set_mute(true, nullptr);
  machine.run_for(5);
  EXPECT_EQ(listener.heard.size(), 1u);
  EXPECT_FALSE(call_ended);
  of_mic->unregister_callback(&listener);
  EXPECT_TRUE(call_ended);
}

TEST_F(EndpointsTest, ACallbackMayUnregisterItself) {
  const auto of_mic = volume();
  VolumeListener* self = nullptr;
  VolumeListener listener([&] { of_mic->unregister_callback(self); });
  self = &listener;
  of_mic->register_callback(&listener);
  of_mic->set_mute(true, nullptr);
  of_mic->set_mute(false, nullptr);
  machine.run_for(5);
  EXPECT_EQ(listener.heard.size(), 1u);
}

}  // namespace
}  // namespace sonivo::sim
