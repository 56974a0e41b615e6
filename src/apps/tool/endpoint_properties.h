#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/tool/driver_connection.h"
#include "platform/fx_requests.h"

namespace sonivo::tool {

/// A value that the driver keeps with an endpoint.
struct EndpointProperty {
  control::FxHome home = control::FxHome::user_store;
  PropertyKey key;
  std::uint32_t type = control::kTypeBlob;
  std::vector<std::byte> bytes;
};

/// The values that the driver keeps with one endpoint. All throw Failure when the driver refuses or is gone.
class EndpointProperties {
 public:
  /// `driver` must outlive it. Throws Failure for an id that is empty or too long for the driver.
  EndpointProperties(DriverConnection& driver, const std::string& id);

  std::optional<EndpointProperty> find(control::FxHome home, const PropertyKey& key);
  /// Sets them all, or none: those set before one that fails are taken back. Answers how many were other ones before.
  int set(const std::vector<EndpointProperty>& properties);
  /// False when there was none.
  bool remove(control::FxHome home, const PropertyKey& key);

 private:
  control::FxAddress address(control::FxHome home, const PropertyKey& key) const;
  void write(const EndpointProperty& property);
  void put_back(const EndpointProperty& present, const std::optional<EndpointProperty>& former) noexcept;

  DriverConnection& driver_;
  control::WireText endpoint_{};
};

}  // namespace sonivo::tool
