#include "apps/tool/chain_parameters.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <random>
#include <span>
#include <utility>

#include "apps/tool/param_blob.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "relay/effect_properties.h"

namespace sonivo::tool {

namespace {

using control::FxHome;

constexpr std::uint32_t kCheckedRate = 48000;
constexpr std::uint16_t kCheckedChannels = 2;
constexpr std::uint16_t kCheckedFrames = 480;

/// As the relay reads it: a byte that switches each stage on, then the blob.
template <class Chain>
EndpointProperty parameters_of(const PropertyKey& key, std::size_t stages, const std::optional<std::string>& blob,
                               const char* chain_name) {
  Chain chain;
  const auto bytes = open_with_params(chain, blob, chain_name, kCheckedRate, kCheckedChannels, kCheckedFrames);
  std::vector<std::byte> value(stages + bytes.size(), std::byte{1});
  std::copy(bytes.begin(), bytes.end(), value.begin() + static_cast<std::ptrdiff_t>(stages));
  return {FxHome::user_store, key, control::kTypeBlob, std::move(value)};
}

/// A random one, which says so in its version.
Guid new_guid() {
  std::random_device device;
  std::array<std::uint32_t, 4> random{};
  for (std::uint32_t& each : random) each = device();
  auto guid = std::bit_cast<Guid>(random);
  guid.data3 = static_cast<std::uint16_t>((guid.data3 & 0x0FFF) | 0x4000);
  guid.data4[0] = static_cast<std::uint8_t>((guid.data4[0] & 0x3F) | 0x80);
  return guid;
}

EndpointProperty guid_of(EndpointProperties& endpoint) {
  if (auto present = endpoint.find(FxHome::effect_store, PKEY_AudioEndpoint_GUID)) return *present;
  const std::string text = to_text(new_guid());
  const auto bytes = std::as_bytes(std::span(text));
  return {FxHome::effect_store, PKEY_AudioEndpoint_GUID, control::kTypeText, {bytes.begin(), bytes.end()}};
}

std::optional<float> strength_in(const std::optional<EndpointProperty>& property) {
  float strength = 0;
  if (!property || property->bytes.size() != sizeof strength) return std::nullopt;
  std::memcpy(&strength, property->bytes.data(), sizeof strength);
  return strength;
}

}  // namespace

StoredParameters stored_parameters(EndpointProperties& endpoint) {
  return {.key_cancel = endpoint.find(FxHome::user_store, PKEY_NVC_MTGMIC_KC_Param).has_value(),
          .beamforming = endpoint.find(FxHome::user_store, PKEY_NVC_MTGMIC_BF_KC_Param).has_value(),
          .strength = strength_in(endpoint.find(FxHome::user_store, PKEY_NVC_AI_Strength))};
}

std::vector<EndpointProperty> chain_properties(EndpointProperties& endpoint, Chain chain,
                                               const std::optional<std::string>& blob, std::optional<float> strength) {
  const bool is_for_beams = chain == Chain::beamforming || chain == Chain::ai;
  const auto own = [&](bool given) { return given ? blob : std::nullopt; };
  std::vector<EndpointProperty> properties{
      guid_of(endpoint),
      parameters_of<CKeyCancel>(PKEY_NVC_MTGMIC_KC_Param, 2, own(!is_for_beams), "keycancel"),
      parameters_of<CBeamFormingKeyCancel>(PKEY_NVC_MTGMIC_BF_KC_Param, 3, own(is_for_beams), "beamforming"),
  };
  if (strength) {
    const auto bytes = std::as_bytes(std::span(&*strength, 1));
    properties.push_back({FxHome::user_store, PKEY_NVC_AI_Strength, control::kTypeBlob, {bytes.begin(), bytes.end()}});
  }
  return properties;
}

// The GUID last: with it what else changes is still told to those who watch.
bool remove_chain_properties(EndpointProperties& endpoint) {
  bool removed = false;
  for (const PropertyKey& key : {PKEY_NVC_MTGMIC_KC_Param, PKEY_NVC_MTGMIC_BF_KC_Param, PKEY_NVC_AI_Strength}) {
    removed |= endpoint.remove(FxHome::user_store, key);
  }
  removed |= endpoint.remove(FxHome::effect_store, PKEY_AudioEndpoint_GUID);
  return removed;
}

}  // namespace sonivo::tool
