#include "relay/effect_properties.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "base/trace.h"
#include "relay/endpoint_names.h"

namespace sonivo {
namespace {

constexpr Status kNotFound = error::kNotFound;

Status CopyText(std::string_view text, void* buffer, std::uint32_t limit) {
  std::u16string wide = to_utf16(text);
  wide.push_back(u'\0');
  std::memcpy(buffer, wide.data(), std::min<std::size_t>(wide.size(), limit) * sizeof(char16_t));
  return kOk;
}

Status CopyBlob(const std::vector<std::byte>& blob, void* buffer, std::uint32_t limit) {
  std::copy_n(blob.data(), std::min<std::size_t>(blob.size(), limit), static_cast<std::byte*>(buffer));
  if (limit >= blob.size()) return kOk;
  trace(TraceLevel::error, "GetFxPropertiesValueEx2_GetPropertyValue size error %d : %d]", static_cast<int>(limit),
        static_cast<int>(blob.size()));
  return error::kMoreData;
}

struct CopyValue {
  void* buffer;
  std::uint32_t limit;

  Status operator()(std::monostate) const { return kNotFound; }
  Status operator()(std::uint32_t number) const {
    const auto low = static_cast<std::uint8_t>(number);
    std::memcpy(buffer, &low, std::min<std::size_t>(sizeof low, limit));
    return kOk;
  }
  Status operator()(const std::string& text) const { return CopyText(text, buffer, limit); }
  Status operator()(const std::vector<std::byte>& blob) const { return CopyBlob(blob, buffer, limit); }
  Status operator()(const ForeignValue&) const { return error::kInvalidData; }
};

}  // namespace

// The external ones of the same maker are known by the word for "external".
bool IsBuiltInMicrophone(std::string_view name) {
  const bool array = contains(name, "デジタルマイク向けインテル") || contains(name, "Realtek High Definition Audio");
  if (array && !contains(name, "外付け")) return true;
  return contains(name, "Realtek Microphone") || contains(name, "Realtek Audio Jack");
}

Status GetFxPropertiesValueEx2(const Machine& machine, Endpoint& device, const std::string& id, const PropertyKey& key,
                               void* buffer, std::uint32_t* cb) {
  if (cb == nullptr) return error::kBadArguments;

  std::unique_ptr<PropertyStore> user_store;
  bool bRegType = !failed(machine.fx_properties.open_user_store(device, kEffectClass, user_store));
  if (key == PKEY_AudioEndpoint_GUID) bRegType = false;  // not an effect's value

  std::unique_ptr<PolicyConfig> policy;
  if (const Status status = machine.fx_properties.policy_config(policy); failed(status)) return status;

  PropertyValue value;
  const Status status = bRegType ? user_store->value(key, value) : policy->property_value(id, true, key, value);
  if (failed(status)) return status;
  return std::visit(CopyValue{buffer, *cb}, value);
}

Status GetFxCapturePropertiesValue(const Machine& machine, const PropertyKey& key, void* buffer, std::uint32_t* cb) {
  if (cb == nullptr) {
    trace(TraceLevel::error, "GetFxCapturePropertiesValue Arguments_Failed(lpcbData).");
    return error::kBadArguments;
  }
  std::vector<std::shared_ptr<Endpoint>> endpoints;
  const Status listed =
      machine.endpoints.list(DataFlow::capture, kDeviceActive | kDeviceDisabled | kDeviceNotPresent, endpoints);
  if (failed(listed)) return listed;

  Status result = kNotFound;
  for (const auto& endpoint : endpoints) {
    std::string id;
    std::string name;
    if (failed(endpoint->id(id)) || failed(ReadFriendlyName(*endpoint, name))) continue;
    result = IsBuiltInMicrophone(name) ? GetFxPropertiesValueEx2(machine, *endpoint, id, key, buffer, cb) : kNotFound;
    if (result != kNotFound) break;
  }
  return result;
}

Status GetFxCaptureBytes(const Machine& machine, const PropertyKey& key, std::span<std::byte> bytes) {
  std::vector<std::byte> room(bytes.size() * sizeof(char16_t));  // a text counts in characters
  std::copy(bytes.begin(), bytes.end(), room.begin());
  auto cb = static_cast<std::uint32_t>(bytes.size());
  const Status status = GetFxCapturePropertiesValue(machine, key, room.data(), &cb);
  if (status == kOk || status == static_cast<Status>(error::kMoreData)) {
    std::copy_n(room.begin(), bytes.size(), bytes.begin());
  }
  return status;
}

}  // namespace sonivo
