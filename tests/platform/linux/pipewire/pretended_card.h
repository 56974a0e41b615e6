#pragma once

#include <pipewire/pipewire.h>
#include <spa/monitor/device.h>
#include <spa/monitor/utils.h>
#include <spa/param/route.h>
#include <spa/pod/builder.h>
#include <spa/pod/filter.h>
#include <spa/pod/parser.h>

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/node_volume.h"

namespace sonivo::test {

/// A sound card with speakers and a headphone jack, as the server's own driver of cards would tell of it, though there
/// is none: this process exports it.
class PretendedCard {
 public:
  explicit PretendedCard(const std::string& remote, const char* form_factor = "internal") : connection_(remote) {
    static const spa_device_methods methods = [] {
      spa_device_methods table{};
      table.version = SPA_VERSION_DEVICE_METHODS;
      table.add_listener = [](void* self, spa_hook* listener, const spa_device_events* events, void* data) {
        return static_cast<PretendedCard*>(self)->add_listener(listener, events, data);
      };
      table.sync = [](void* self, int seq) {
        spa_device_emit_result(&static_cast<PretendedCard*>(self)->hooks_, seq, 0, 0, nullptr);
        return 0;
      };
      table.enum_params = [](void* self, int seq, std::uint32_t id, std::uint32_t start, std::uint32_t count,
                             const spa_pod*) {
        return static_cast<PretendedCard*>(self)->enum_params(seq, id, start, count);
      };
      table.set_param = [](void* self, std::uint32_t id, std::uint32_t, const spa_pod* param) {
        if (id == SPA_PARAM_Route && param != nullptr) static_cast<PretendedCard*>(self)->set_route(*param);
        return 0;
      };
      return table;
    }();
    spa_hook_list_init(&hooks_);
    device_.iface = SPA_INTERFACE_INIT(SPA_TYPE_INTERFACE_Device, SPA_VERSION_DEVICE, &methods, this);
    items_ = {SPA_DICT_ITEM_INIT(PW_KEY_MEDIA_CLASS, "Audio/Device"),
              SPA_DICT_ITEM_INIT(PW_KEY_DEVICE_NAME, "pretended.card"),
              SPA_DICT_ITEM_INIT(PW_KEY_DEVICE_FORM_FACTOR, form_factor)};
    params_ = {readable(SPA_PARAM_EnumRoute), readable(SPA_PARAM_Route)};
    const pipewire::Connection::Lock lock(connection_);
    if (connection_.core() == nullptr) throw std::runtime_error("no server to export the card to");
    const spa_dict properties = SPA_DICT_INIT(items_.data(), static_cast<std::uint32_t>(items_.size()));
    proxy_ = pw_core_export(connection_.core(), SPA_TYPE_INTERFACE_Device, &properties, &device_, 0);
    if (proxy_ == nullptr) throw std::runtime_error("the card can't be exported");
    static const pw_proxy_events proxy_events = [] {
      pw_proxy_events table{};
      table.version = PW_VERSION_PROXY_EVENTS;
      table.destroy = [](void* self) { static_cast<PretendedCard*>(self)->proxy_ = nullptr; };
      return table;
    }();
    pw_proxy_add_listener(proxy_, &proxy_hook_, &proxy_events, this);
  }
  ~PretendedCard() {
    const pipewire::Connection::Lock lock(connection_);
    if (proxy_ != nullptr) pw_proxy_destroy(proxy_);  // it goes with the server
  }
  PretendedCard(const PretendedCard&) = delete;
  PretendedCard& operator=(const PretendedCard&) = delete;

  /// The server's number for it.
  std::uint32_t id() const {
    const pipewire::Connection::Lock lock(connection_);
    return proxy_ != nullptr ? pw_proxy_get_bound_id(proxy_) : SPA_ID_INVALID;
  }
  /// Of the route that was set last, with what volume; none yet.
  struct SetRoute {
    std::int32_t index = -1;
    pipewire::NodeVolume volume;
  };
  std::optional<SetRoute> latest_set() const {
    const pipewire::Connection::Lock lock(connection_);
    return set_;
  }

  /// In which the jack is in use, too.
  void plug(bool plugged) {
    const pipewire::Connection::Lock lock(connection_);
    plugged_ = plugged;
    for (spa_param_info& each : params_) each.flags ^= SPA_PARAM_INFO_SERIAL;
    emit_info(SPA_DEVICE_CHANGE_MASK_PARAMS);
  }

 private:
  static spa_param_info readable(std::uint32_t id) {
    spa_param_info info{};
    info.id = id;
    info.flags = SPA_PARAM_INFO_READ;
    return info;
  }

  int add_listener(spa_hook* listener, const spa_device_events* events, void* data) {
    spa_hook_list others;
    spa_hook_list_isolate(&hooks_, &others, listener, events, data);
    emit_info(SPA_DEVICE_CHANGE_MASK_PROPS | SPA_DEVICE_CHANGE_MASK_PARAMS);
    spa_hook_list_join(&hooks_, &others);
    return 0;
  }

  void emit_info(std::uint64_t changes) {
    const spa_dict properties = SPA_DICT_INIT(items_.data(), static_cast<std::uint32_t>(items_.size()));
    spa_device_info info{};
    info.version = SPA_VERSION_DEVICE_INFO;
    info.change_mask = changes;
    info.props = &properties;
    info.params = params_.data();
    info.n_params = static_cast<std::uint32_t>(params_.size());
    spa_device_emit_info(&hooks_, &info);
  }

  int enum_params(int seq, std::uint32_t id, std::uint32_t start, std::uint32_t count) {
    const std::uint32_t ports = id == SPA_PARAM_EnumRoute ? 2 : 1;
    for (std::uint32_t i = start; i < ports && i < start + count; ++i) {
      std::array<std::uint8_t, 1024> memory{};
      spa_pod_builder builder{};
      spa_pod_builder_init(&builder, memory.data(), static_cast<std::uint32_t>(memory.size()));
      const bool is_jack = id == SPA_PARAM_EnumRoute ? i == 1 : plugged_;
      spa_result_device_params result{id, i, i + 1, route(builder, id, is_jack)};
      spa_device_emit_result(&hooks_, seq, 0, SPA_RESULT_TYPE_DEVICE_PARAMS, &result);
    }
    return 0;
  }

  spa_pod* route(spa_pod_builder& builder, std::uint32_t id, bool is_jack) const {
    const auto jack = plugged_ ? SPA_PARAM_AVAILABILITY_yes : SPA_PARAM_AVAILABILITY_no;
    spa_pod_frame object;
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_ParamRoute, id);
    spa_pod_builder_add(&builder, SPA_PARAM_ROUTE_index, SPA_POD_Int(is_jack ? 1 : 0), SPA_PARAM_ROUTE_direction,
                        SPA_POD_Id(SPA_DIRECTION_OUTPUT), SPA_PARAM_ROUTE_name,
                        SPA_POD_String(is_jack ? "analog-output-headphones" : "analog-output-speaker"),
                        SPA_PARAM_ROUTE_available, SPA_POD_Id(is_jack ? jack : SPA_PARAM_AVAILABILITY_unknown), 0);
    spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_info, SPA_POD_PROP_FLAG_HINT_DICT);
    spa_pod_frame info;
    spa_pod_builder_push_struct(&builder, &info);
    spa_pod_builder_add(&builder, SPA_POD_Int(1), SPA_POD_String("port.type"),
                        SPA_POD_String(is_jack ? "headphones" : "speaker"), static_cast<const char*>(nullptr));
    spa_pod_builder_pop(&builder, &info);
    if (id == SPA_PARAM_Route) spa_pod_builder_add(&builder, SPA_PARAM_ROUTE_device, SPA_POD_Int(0), 0);
    return static_cast<spa_pod*>(spa_pod_builder_pop(&builder, &object));
  }

  void set_route(const spa_pod& param) {
    SetRoute set;
    const spa_pod* props = nullptr;
    spa_pod_parse_object(&param, SPA_TYPE_OBJECT_ParamRoute, nullptr, SPA_PARAM_ROUTE_index, SPA_POD_Int(&set.index),
                         SPA_PARAM_ROUTE_props, SPA_POD_OPT_Pod(&props));
    if (props != nullptr && pipewire::read_volume(*props, set.volume)) set_ = set;
  }

  pipewire::Connection connection_;
  spa_hook_list hooks_{};
  spa_device device_{};
  std::array<spa_dict_item, 3> items_{};
  std::array<spa_param_info, 2> params_{};
  pw_proxy* proxy_ = nullptr;
  spa_hook proxy_hook_{};
  bool plugged_ = false;
  std::optional<SetRoute> set_;
};

}  // namespace sonivo::test
