#pragma once

#include <string>

#include "platform/device.h"
#include "platform/fx_properties.h"

namespace sonivo::linux {

/// Effect properties as the driver keeps them. What is opened has a connection of its own, and fails with
/// error::kDeviceNotConnected once the driver is gone; but a watch goes on with the next one.
class ControlFxProperties final : public FxProperties {
 public:
  /// `bus` has the driver's control interface.
  explicit ControlFxProperties(DeviceBus& bus) : ControlFxProperties(bus, bus) {}
  /// Watches, which have threads of their own, go by another bus to the same driver.
  ControlFxProperties(DeviceBus& bus, DeviceBus& of_watches) : bus_(bus), of_watches_(of_watches) {}

  /// Every endpoint has a user store of the capture effect.
  Status open_user_store(Endpoint& endpoint, const Guid& effect, std::unique_ptr<PropertyStore>& store) override;
  Status policy_config(std::unique_ptr<PolicyConfig>& config) override;
  /// error::kFileNotFound when the driver holds no values of such an endpoint. Changes of settings count as changes.
  Error open_watch(const std::string& endpoint_guid, std::unique_ptr<FxWatch>& watch) override;

 private:
  DeviceBus& bus_;
  DeviceBus& of_watches_;
};

}  // namespace sonivo::linux
