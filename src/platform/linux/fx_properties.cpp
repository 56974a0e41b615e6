#include "platform/linux/fx_properties.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/fx_requests.h"
#include "platform/linux/fx_watch.h"

namespace sonivo::linux {
namespace {

using control::FxHome;

control::WireText to_wire(const std::string& text) {
  control::WireText wire{};
  to_utf16(text).copy(wire.data(), wire.size() - 1);
  return wire;
}

PropertyValue value_of(std::uint32_t type, std::span<const std::byte> bytes) {
  switch (type) {
    case control::kTypeNumber: {
      std::uint32_t number = 0;
      std::memcpy(&number, bytes.data(), std::min(sizeof number, bytes.size()));
      return number;
    }
    case control::kTypeText: {
      std::string text(bytes.size(), '\0');
      std::memcpy(text.data(), bytes.data(), bytes.size());
      return text;
    }
    case control::kTypeBlob:
      return std::vector<std::byte>(bytes.begin(), bytes.end());
    default:
      return ForeignValue{static_cast<std::uint16_t>(type)};
  }
}

Status read_property(Device& device, FxHome home, const std::string& id, const PropertyKey& key, PropertyValue& value) {
  const control::FxAddress address{home, key.pid, key.fmtid, to_wire(id)};
  std::vector<std::byte> output(sizeof(std::uint32_t) + control::kMaxFxValueBytes);
  std::uint32_t transferred = 0;
  const Error outcome =
      device.control_now(control::NSV_GET_FX_PROPERTY, std::as_bytes(std::span(&address, 1)), output, transferred);
  if (outcome == error::kNotFound) {
    value = {};
    return kOk;
  }
  if (outcome != error::kNone) return status_from_error(outcome);
  std::uint32_t type = 0;
  if (transferred < sizeof type) return status_from_error(error::kInvalidData);
  std::memcpy(&type, output.data(), sizeof type);
  value = value_of(type, std::span(output).first(transferred).subspan(sizeof type));
  return kOk;
}

class ControlUserStore final : public PropertyStore {
 public:
  ControlUserStore(std::shared_ptr<Device> device, std::string id) : device_(std::move(device)), id_(std::move(id)) {}
  Status value(const PropertyKey& key, PropertyValue& value) override {
    return read_property(*device_, FxHome::user_store, id_, key, value);
  }

 private:
  std::shared_ptr<Device> device_;
  std::string id_;
};

class ControlPolicy final : public PolicyConfig {
 public:
  explicit ControlPolicy(std::shared_ptr<Device> device) : device_(std::move(device)) {}
  Status property_value(const std::string& id, bool effect_store, const PropertyKey& key,
                        PropertyValue& value) override {
    return read_property(*device_, effect_store ? FxHome::effect_store : FxHome::device_properties, id, key, value);
  }

 private:
  std::shared_ptr<Device> device_;
};

}  // namespace

Status ControlFxProperties::open_user_store(Endpoint& endpoint, const Guid& effect,
                                            std::unique_ptr<PropertyStore>& store) {
  if (effect != control::kCaptureEffect) return kNoInterface;
  std::string id;
  if (const Status status = endpoint.id(id); failed(status)) return status;
  Error why = error::kNone;
  auto device = open_control(bus_, Completion::synchronous, why);
  if (!device) return status_from_error(why);
  store = std::make_unique<ControlUserStore>(std::move(device), std::move(id));
  return kOk;
}

Status ControlFxProperties::policy_config(std::unique_ptr<PolicyConfig>& config) {
  Error why = error::kNone;
  auto device = open_control(bus_, Completion::synchronous, why);
  if (!device) return status_from_error(why);
  config = std::make_unique<ControlPolicy>(std::move(device));
  return kOk;
}

Error ControlFxProperties::open_watch(const std::string& endpoint_guid, std::unique_ptr<FxWatch>& watch) {
  auto opened = std::make_unique<ControlWatch>(of_watches_, endpoint_guid);
  const Error why = opened->open();
  if (why == error::kNotFound) return error::kFileNotFound;
  if (why == error::kNone) watch = std::move(opened);
  return why;
}

}  // namespace sonivo::linux
