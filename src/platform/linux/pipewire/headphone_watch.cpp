#include "platform/linux/pipewire/headphone_watch.h"

#include <pipewire/extensions/metadata.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/pipewire/card_ports.h"
#include "platform/linux/pipewire/dictionary.h"

namespace sonivo::pipewire {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kCardsPart{1000};    // cards go before and after the manager whose they are
constexpr milliseconds kCardsReturn{4000};  // a manager that is restarted has them again after one or two
constexpr int kRoundsUntilAllTold = 3;      // the cards that there are, what each is, then its ports

}  // namespace

struct HeadphoneWatch::Card {
  Card(HeadphoneWatch& its_watch, const Registry& registry, std::uint32_t id)
      : watch(its_watch), object(registry, id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE, &events(), this) {}

  static const pw_device_events& events() {
    static const pw_device_events all = [] {
      pw_device_events table{};
      table.version = PW_VERSION_DEVICE_EVENTS;
      table.info = [](void* card, const pw_device_info* info) { static_cast<Card*>(card)->tell_info(*info); };
      table.param = [](void* card, int, std::uint32_t param_id, std::uint32_t, std::uint32_t, const spa_pod* param) {
        if (param != nullptr) static_cast<Card*>(card)->tell_param(param_id, *param);
      };
      return table;
    }();
    return all;
  }
  void tell_info(const pw_device_info& info) {
    if ((info.change_mask & PW_DEVICE_CHANGE_MASK_PROPS) != 0 && info.props != nullptr) {
      const char* const shape = spa_dict_lookup(info.props, PW_KEY_DEVICE_FORM_FACTOR);
      form_factor = shape != nullptr ? shape : "";
      watch.look();
    }
    if ((info.change_mask & PW_DEVICE_CHANGE_MASK_PARAMS) == 0) return;
    // A subscription misses changes that follow each other at once.
    for (const std::uint32_t id : {SPA_PARAM_EnumRoute, SPA_PARAM_Route}) {
      pw_device_enum_params(object.get<pw_device>(), 0, id, 0, kAllParams, nullptr);
    }
  }
  /// EnumRoute tells of a port, Route of the one that is in use in its direction.
  void tell_param(std::uint32_t param_id, const spa_pod& param) {
    const auto port = read_port(param);
    if (!port) return;
    note_port(ports, *port, param_id == SPA_PARAM_Route);
    watch.look();
  }

  HeadphoneWatch& watch;
  std::string form_factor;
  std::vector<CardPort> ports;
  const BoundObject object;
};

HeadphoneWatch::HeadphoneWatch(Connection& connection, std::function<void(bool)> changed)
    : changed_(std::move(changed)),
      waited_(connection,
              [this] {
                waits_ = false;
                look();
              }),
      registry_(connection, *this, kRoundsUntilAllTold) {}

HeadphoneWatch::~HeadphoneWatch() = default;

void HeadphoneWatch::came(std::uint32_t id, std::string_view type, const spa_dict& properties) {
  if (type == PW_TYPE_INTERFACE_Device && text_of(properties, PW_KEY_MEDIA_CLASS) == "Audio/Device") {
    cards_[id] = std::make_unique<Card>(*this, registry_, id);
  } else if (type == PW_TYPE_INTERFACE_Metadata && text_of(properties, PW_KEY_METADATA_NAME) == "default") {
    manager_ = id;
    if (waits_) wait_for_cards(kCardsReturn);
  }
}

void HeadphoneWatch::went(std::uint32_t id) {
  if (id == manager_) {
    manager_ = SPA_ID_INVALID;
  } else if (cards_.erase(id) == 0) {
    return;
  }
  wait_for_cards(manager_ == SPA_ID_INVALID ? kCardsReturn : kCardsPart);
}

void HeadphoneWatch::told() {
  if (told_.has_value()) wait_for_cards(kCardsReturn);
  look();
}

void HeadphoneWatch::lost() {
  cards_.clear();
  manager_ = SPA_ID_INVALID;
}

void HeadphoneWatch::wait_for_cards(milliseconds limit) {
  waits_ = true;
  waited_.start(limit);
}

void HeadphoneWatch::look() {
  if (!registry_.is_told()) return;
  const bool plugged = std::any_of(cards_.begin(), cards_.end(), [](const auto& each) {
    return has_headphones(each.second->form_factor, each.second->ports);
  });
  waits_ = waits_ && !plugged;
  if (waits_ && told_.has_value()) return;
  if (std::exchange(told_, plugged) != plugged) changed_(plugged);
}

}  // namespace sonivo::pipewire
