#include "apps/tool/endpoint_properties.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <span>
#include <utility>

#include "apps/tool/failure.h"
#include "base/text.h"

namespace sonivo::tool {

EndpointProperties::EndpointProperties(DriverConnection& driver, const std::string& id) : driver_(driver) {
  const std::u16string wide = to_utf16(id);
  if (wide.empty() || wide.size() >= endpoint_.size()) {
    throw Failure("'" + id + "' is no id of a microphone: the driver takes 1 to 259 characters");
  }
  wide.copy(endpoint_.data(), wide.size());
}

control::FxAddress EndpointProperties::address(control::FxHome home, const PropertyKey& key) const {
  return {.home = home, .pid = key.pid, .fmtid = key.fmtid, .endpoint = endpoint_};
}

std::optional<EndpointProperty> EndpointProperties::find(control::FxHome home, const PropertyKey& key) {
  const auto question = address(home, key);
  EndpointProperty property{home, key, 0, std::vector<std::byte>(sizeof property.type + control::kMaxFxValueBytes)};
  std::uint32_t transferred = 0;
  const Error refused = driver_.request(control::NSV_GET_FX_PROPERTY, std::as_bytes(std::span(&question, 1)),
                                        property.bytes, transferred);
  if (refused == error::kNotFound) return std::nullopt;
  if (refused != error::kNone || transferred < sizeof property.type) {
    throw Failure("the driver does not tell what it keeps with the microphone: " + refusal_text(refused));
  }
  std::memcpy(&property.type, property.bytes.data(), sizeof property.type);
  property.bytes.resize(transferred);
  property.bytes.erase(property.bytes.begin(), property.bytes.begin() + sizeof property.type);
  return property;
}

int EndpointProperties::set(const std::vector<EndpointProperty>& properties) {
  std::vector<std::pair<const EndpointProperty*, std::optional<EndpointProperty>>> done;
  for (const EndpointProperty& each : properties) {
    const auto former = find(each.home, each.key);
    if (former && former->type == each.type && former->bytes == each.bytes) continue;
    try {
      write(each);
    } catch (...) {
      for (auto last = done.rbegin(); last != done.rend(); ++last) put_back(*last->first, last->second);
      throw;
    }
    done.emplace_back(&each, former);
  }
  return static_cast<int>(done.size());
}

bool EndpointProperties::remove(control::FxHome home, const PropertyKey& key) {
  const auto question = address(home, key);
  std::uint32_t transferred = 0;
  const Error refused =
      driver_.request(control::NSV_REMOVE_FX_PROPERTY, std::as_bytes(std::span(&question, 1)), {}, transferred);
  if (refused == error::kNotFound) return false;
  if (refused != error::kNone) throw Failure("the driver does not forget the parameters: " + refusal_text(refused));
  return true;
}

void EndpointProperties::write(const EndpointProperty& property) {
  const auto target = address(property.home, property.key);
  std::vector<std::byte> input(sizeof target + sizeof property.type + property.bytes.size());
  std::memcpy(input.data(), &target, sizeof target);
  std::memcpy(input.data() + sizeof target, &property.type, sizeof property.type);
  std::copy(property.bytes.begin(), property.bytes.end(), input.begin() + sizeof target + sizeof property.type);
  std::uint32_t transferred = 0;
  const Error refused = driver_.request(control::NSV_SET_FX_PROPERTY, input, {}, transferred);
  if (refused != error::kNone) throw Failure("the driver does not keep the parameters: " + refusal_text(refused));
}

// Whatever kept the driver from the rest may keep it from this, too; what is told is the first fault.
void EndpointProperties::put_back(const EndpointProperty& present,
                                  const std::optional<EndpointProperty>& former) noexcept {
  try {
    if (former) {
      write(*former);
    } else {
      remove(present.home, present.key);
    }
  } catch (const std::exception&) {
  }
}

}  // namespace sonivo::tool
