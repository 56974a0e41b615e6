#include "platform/linux/fx_properties.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/fx_requests.h"

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

/// Sets the event of the one who armed a watch; the request that starts leaves that event as it is.
class ArmedEvent final : public Event {
 public:
  void set() override {
    const std::scoped_lock lock(mutex_);
    if (target_ != nullptr) std::exchange(target_, nullptr)->set();
  }
  void reset() override {}

  void aim(Event* target) {
    const std::scoped_lock lock(mutex_);
    target_ = target;
  }

 private:
  std::mutex mutex_;
  Event* target_ = nullptr;
};

class ControlWatch final : public FxWatch {
 public:
  ControlWatch(std::shared_ptr<Device> device, const std::string& endpoint) : device_(std::move(device)) {
    question_.endpoint = to_wire(endpoint);
  }
  ~ControlWatch() override { device_->close(); }

  /// Learns the latest change of all.
  Error open() {
    std::uint32_t transferred = 0;
    return device_->control_now(control::NSV_WATCH_FX_PROPERTIES, question(), answer(), transferred);
  }

  Status arm(Event* event) override {
    if (event == nullptr) return kInvalidArgument;
    armed_.aim(event);
    std::uint32_t transferred = 0;
    const Error latest = device_->result(request_, transferred, false);
    if (latest == error::kIoPending) return kOk;
    if (latest != error::kNone) return status_from_error(latest);
    question_.seen = change_;
    const Error started = device_->control(control::NSV_WATCH_FX_PROPERTIES, question(), answer(), request_);
    return started == error::kIoPending ? kOk : status_from_error(started);
  }

 private:
  std::span<const std::byte> question() const { return std::as_bytes(std::span(&question_, 1)); }
  std::span<std::byte> answer() { return std::as_writable_bytes(std::span(&change_, 1)); }

  std::shared_ptr<Device> device_;
  control::FxWatchQuestion question_;
  std::uint64_t change_ = 0;
  ArmedEvent armed_;
  Overlapped request_{.hEvent = &armed_};
};

}  // namespace

std::shared_ptr<Device> ControlFxProperties::open(Completion completion, Error& why) {
  why = error::kFileNotFound;
  const auto interfaces = bus_.interfaces(control::kControlInterface);
  if (interfaces.empty()) return nullptr;
  return bus_.open(interfaces.front().path, Sharing::shared, completion, why);
}

Status ControlFxProperties::open_user_store(Endpoint& endpoint, const Guid& effect,
                                            std::unique_ptr<PropertyStore>& store) {
  if (effect != control::kCaptureEffect) return kNoInterface;
  std::string id;
  if (const Status status = endpoint.id(id); failed(status)) return status;
  Error why = error::kNone;
  auto device = open(Completion::synchronous, why);
  if (!device) return status_from_error(why);
  store = std::make_unique<ControlUserStore>(std::move(device), std::move(id));
  return kOk;
}

Status ControlFxProperties::policy_config(std::unique_ptr<PolicyConfig>& config) {
  Error why = error::kNone;
  auto device = open(Completion::synchronous, why);
  if (!device) return status_from_error(why);
  config = std::make_unique<ControlPolicy>(std::move(device));
  return kOk;
}

Error ControlFxProperties::open_watch(const std::string& endpoint_guid, std::unique_ptr<FxWatch>& watch) {
  Error why = error::kNone;
  auto device = open(Completion::overlapped, why);
  if (!device) return why;
  auto opened = std::make_unique<ControlWatch>(std::move(device), endpoint_guid);
  why = opened->open();
  if (why == error::kNotFound) why = error::kFileNotFound;
  if (why == error::kNone) watch = std::move(opened);
  return why;
}

}  // namespace sonivo::linux
