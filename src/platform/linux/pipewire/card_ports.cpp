#include "platform/linux/pipewire/card_ports.h"

#include <spa/param/route.h>
#include <spa/pod/iter.h>
#include <spa/pod/parser.h>

#include <algorithm>
#include <utility>

namespace sonivo::pipewire {
namespace {

CardPort::Availability availability_of(std::uint32_t id) {
  if (id == SPA_PARAM_AVAILABILITY_yes) return CardPort::Availability::yes;
  return id == SPA_PARAM_AVAILABILITY_no ? CardPort::Availability::no : CardPort::Availability::unknown;
}

/// The value of a key in a route's info: a number of items, then a key and a value of each. Empty when it isn't there.
std::string info_value(const spa_pod& info, std::string_view wanted) {
  spa_pod_parser parser{};
  spa_pod_parser_pod(&parser, &info);
  spa_pod_frame frame{};
  std::int32_t items = 0;
  if (spa_pod_parser_push_struct(&parser, &frame) < 0 || spa_pod_parser_get_int(&parser, &items) < 0) return {};
  for (; items > 0; --items) {
    const char* key = nullptr;
    const char* value = nullptr;
    if (spa_pod_parser_get_string(&parser, &key) < 0 || spa_pod_parser_get_string(&parser, &value) < 0) return {};
    if (key == wanted) return value;
  }
  return {};
}

bool is_worn(std::string_view type) { return type == "headphones" || type == "headset"; }

}  // namespace

std::optional<CardPort> read_port(const spa_pod& param) {
  CardPort port;
  std::uint32_t available = SPA_PARAM_AVAILABILITY_unknown;
  const spa_pod* info = nullptr;
  constexpr std::int32_t kNoDevice = -1;
  std::int32_t device = kNoDevice;
  const int found = spa_pod_parse_object(
      &param, SPA_TYPE_OBJECT_ParamRoute, nullptr, SPA_PARAM_ROUTE_index, SPA_POD_Int(&port.index),
      SPA_PARAM_ROUTE_direction, SPA_POD_Id(&port.direction), SPA_PARAM_ROUTE_available, SPA_POD_OPT_Id(&available),
      SPA_PARAM_ROUTE_info, SPA_POD_OPT_Pod(&info), SPA_PARAM_ROUTE_device, SPA_POD_OPT_Int(&device));
  if (found < 0) return std::nullopt;
  port.availability = availability_of(available);
  if (info != nullptr) port.type = info_value(*info, "port.type");
  if (device != kNoDevice) port.device = device;
  return port;
}

void note_port(std::vector<CardPort>& ports, CardPort port, bool in_use) {
  if (in_use) {
    for (CardPort& each : ports) {
      if (each.direction == port.direction && each.device == port.device) each.in_use = false;
    }
  }
  const auto known = std::find_if(ports.begin(), ports.end(), [&](const CardPort& each) {
    return each.index == port.index && each.direction == port.direction;
  });
  port.in_use = in_use;
  if (known == ports.end()) {
    ports.push_back(std::move(port));
    return;
  }
  if (!in_use) {
    port.in_use = known->in_use;
    port.device = known->device;
  }
  *known = std::move(port);
}

bool has_headphones(std::string_view form_factor, std::span<const CardPort> ports) {
  const bool is_headset = form_factor == "headset" || form_factor == "headphone";
  return std::any_of(ports.begin(), ports.end(), [&](const CardPort& port) {
    if (port.direction != SPA_DIRECTION_OUTPUT || port.availability == CardPort::Availability::no) return false;
    if (is_headset) return true;
    return is_worn(port.type) && (port.availability == CardPort::Availability::yes || port.in_use);
  });
}

}  // namespace sonivo::pipewire
