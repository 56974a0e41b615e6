#include "driver/effect_properties.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/text.h"
#include "driver/property_lines.h"

namespace sonivo::driver {
namespace {

using control::Answer;

constexpr const char* kPropertyFile = "effect-properties";
constexpr std::string_view kPropertyTitle = "sonivo effect properties 1";
/// Endpoints whose changes are told apart; with more, a change counts for all.
constexpr std::size_t kMaxChangedEndpoints = 256;

/// The address at the head of a request's input.
std::optional<EffectProperties::Address> address_in(std::span<const std::byte> input) {
  control::FxAddress wire;
  if (input.size() < sizeof wire) return std::nullopt;
  std::memcpy(&wire, input.data(), sizeof wire);
  const auto end = std::find(wire.endpoint.begin(), wire.endpoint.end(), u'\0');
  if (wire.home > control::FxHome::device_properties || end == wire.endpoint.begin() || end == wire.endpoint.end()) {
    return std::nullopt;
  }
  return EffectProperties::Address{wire.home, {wire.endpoint.begin(), end}, {wire.fmtid, wire.pid}};
}

}  // namespace

EffectProperties::EffectProperties(StateFolder& folder) : folder_(folder) {
  for (const std::string& line : folder_.load(kPropertyFile, kPropertyTitle)) {
    auto property = property_of_line(line);
    if (property && values_.insert(std::move(*property)).second) continue;
    folder_.set_aside(kPropertyFile, "it holds what is no property, or one twice");
    values_.clear();
    return;
  }
}

Answer EffectProperties::get(std::span<const std::byte> input, std::span<std::byte> output) const {
  const auto address = address_in(input);
  if (!address || input.size() != sizeof(control::FxAddress)) return {.error = error::kInvalidParameter};
  const auto found = values_.find(*address);
  if (found == values_.end()) return {.error = error::kNotFound};
  const auto& [type, bytes] = found->second;
  if (output.size() < sizeof type + bytes.size()) return {.error = error::kInsufficientBuffer};
  std::memcpy(output.data(), &type, sizeof type);
  std::copy(bytes.begin(), bytes.end(), output.begin() + sizeof type);
  return {.transferred = static_cast<std::uint32_t>(sizeof type + bytes.size())};
}

Answer EffectProperties::set(std::span<const std::byte> input) {
  const auto address = address_in(input);
  Value value;
  if (!address || input.size() < sizeof(control::FxAddress) + sizeof value.type) {
    return {.error = error::kInvalidParameter};
  }
  input = input.subspan(sizeof(control::FxAddress));
  std::memcpy(&value.type, input.data(), sizeof value.type);
  input = input.subspan(sizeof value.type);
  value.bytes.assign(input.begin(), input.end());
  if (!is_sound(value)) return {.error = error::kInvalidParameter};
  const auto found = values_.find(*address);
  if (!unsure_ && found != values_.end() && found->second == value) return {};
  Values next = values_;
  next[*address] = std::move(value);
  return replace(std::move(next), *address);
}

Answer EffectProperties::remove(std::span<const std::byte> input) {
  const auto address = address_in(input);
  if (!address || input.size() != sizeof(control::FxAddress)) return {.error = error::kInvalidParameter};
  Values next = values_;
  const bool there = next.erase(*address) != 0;
  if (!there && !unsure_) return {.error = error::kNotFound};
  const Answer answer = replace(std::move(next), *address);
  return there || answer.error != error::kNone ? answer : Answer{.error = error::kNotFound};
}

Answer EffectProperties::replace(Values next, const Address& changed) {
  std::vector<std::string> lines;
  std::size_t bytes = 0;
  for (const auto& [address, value] : next) {
    bytes += value.bytes.size();
    lines.push_back(property_line(address, value));
  }
  const bool fits = next.size() <= control::kMaxFxValues && bytes <= control::kMaxFxTotalBytes;
  if (!fits && next.size() >= values_.size()) return {.error = error::kDiskFull};
  if (const Error failed = folder_.save(kPropertyFile, kPropertyTitle, lines); failed != error::kNone) {
    unsure_ = true;
    return {.error = failed};
  }
  unsure_ = false;
  if (next == values_) return {};
  values_ = std::move(next);
  if (changed.home != control::FxHome::device_properties) touch(changed.endpoint);
  return {.changed = true};
}

std::optional<std::u16string> EffectProperties::find_endpoint(std::u16string_view name) const {
  const std::string guid = to_utf8(name);
  for (const auto& [address, value] : values_) {
    if (address.endpoint == name) return address.endpoint;
    if (address.key != control::kEndpointGuidKey || value.type != control::kTypeText) continue;
    const std::string text(reinterpret_cast<const char*>(value.bytes.data()), value.bytes.size());
    if (equals_ignoring_case(text, guid)) return address.endpoint;
  }
  return std::nullopt;
}

std::uint64_t EffectProperties::latest_change(const std::u16string& endpoint) const {
  const auto own = changes_.find(endpoint);
  return own == changes_.end() ? for_all_ : own->second;
}

void EffectProperties::touch(const std::u16string& endpoint) {
  if (changes_.size() == kMaxChangedEndpoints && !changes_.contains(endpoint)) return touch_all();
  changes_[endpoint] = ++change_;
}

void EffectProperties::touch_all() {
  for_all_ = ++change_;
  changes_.clear();
}

}  // namespace sonivo::driver
