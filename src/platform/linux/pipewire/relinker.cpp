#include "platform/linux/pipewire/relinker.h"

#include <pipewire/extensions/metadata.h>

#include <algorithm>
#include <utility>

#include "platform/linux/pipewire/dictionary.h"

namespace sonivo::pipewire {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kParting{1000};  // links go before and after the manager that made them
constexpr milliseconds kFirstLook{500};
constexpr milliseconds kNextLook{100};
constexpr int kLooks = 50;

}  // namespace

Relinker::Relinker(Connection& connection, std::set<std::string> own_nodes)
    : own_names_(std::move(own_nodes)), next_look_(connection, [this] { look(); }), registry_(connection, *this) {}

void Relinker::lost() {
  manager_ = SPA_ID_INVALID;
  own_nodes_.clear();
  streams_.clear();
  ports_.clear();
  links_.clear();
  asked_.clear();
  made_.clear();
  lost_.clear();
}

void Relinker::came(Id id, std::string_view type, const spa_dict& properties) {
  if (type == PW_TYPE_INTERFACE_Node) {
    const std::string name(text_of(properties, PW_KEY_NODE_NAME));
    if (own_names_.contains(name)) own_nodes_[id] = name;
    if (text_of(properties, PW_KEY_MEDIA_CLASS).starts_with("Stream/")) streams_.insert(id);
  } else if (type == PW_TYPE_INTERFACE_Port) {
    const Id node = number_of(properties, PW_KEY_NODE_ID).value_or(SPA_ID_INVALID);
    const std::string name(text_of(properties, PW_KEY_PORT_NAME));
    const auto own = own_nodes_.find(node);
    ports_[id] = own != own_nodes_.end() ? Port{node, own->second + ":" + name, true} : Port{node, name, false};
  } else if (type == PW_TYPE_INTERFACE_Link) {
    const auto output = number_of(properties, PW_KEY_LINK_OUTPUT_PORT);
    const auto input = number_of(properties, PW_KEY_LINK_INPUT_PORT);
    if (output && input) add_link(id, *output, *input);
  } else if (type == PW_TYPE_INTERFACE_Metadata && text_of(properties, PW_KEY_METADATA_NAME) == "default") {
    manager_ = id;
    manager_came_ = steady_clock::now();
    looks_left_ = kLooks;
    next_look_.start(kFirstLook);
  }
}

void Relinker::went(Id id) {
  const auto now = steady_clock::now();
  if (manager_ != SPA_ID_INVALID) {
    std::erase_if(lost_, [&](const Lost& each) {
      return (each.when > manager_came_ || !looks_left_) && now - each.when > kParting;
    });
  }
  if (id == manager_) manager_ = SPA_ID_INVALID;
  own_nodes_.erase(id);
  streams_.erase(id);
  ports_.erase(id);
  // Another object may get its number.
  std::erase_if(lost_, [id](const Lost& each) { return each.link.stream_port() == id; });
  const auto link = links_.extract(id);
  if (link.empty()) return;
  const Link& gone = link.mapped();
  made_.erase(ports_of(gone));
  if (!gone.own_port.empty() && ports_.contains(gone.stream_port())) lost_.push_back({gone, now});
}

void Relinker::add_link(Id id, Id output, Id input) {
  const auto from = ports_.find(output);
  const auto to = ports_.find(input);
  if (from == ports_.end() || to == ports_.end()) return;
  const bool is_recorded = streams_.contains(to->second.node);
  if (!is_recorded && !streams_.contains(from->second.node)) return;
  const Port& other = is_recorded ? from->second : to->second;
  const Link link{output, input, is_recorded ? to->second.node : from->second.node, is_recorded,
                  other.is_own ? other.name : ""};
  links_[id] = link;
  if (asked_.erase(ports_of(link)) != 0) made_.insert(ports_of(link));
  std::erase_if(lost_, [this](const Lost& each) { return is_over(each.link); });
  if (is_made(link)) return;
  for (const auto& [made, each] : links_) {
    if (each.stream == link.stream && is_made(each)) pw_registry_destroy(&registry_.objects(), made);
  }
}

void Relinker::look() {
  asked_.clear();
  if (manager_ == SPA_ID_INVALID || looks_left_ == 0) return;
  std::erase_if(lost_, [this](const Lost& each) { return is_over(each.link); });
  for (const Lost& each : lost_) {
    if (each.when < manager_came_) restore(each.link);
  }
  --looks_left_;
  next_look_.start(kNextLook);
}

/// Whether its stream is linked again, by whomever.
bool Relinker::is_over(const Link& lost) const {
  return std::any_of(links_.begin(), links_.end(), [&](const auto& link) {
    const Link& each = link.second;
    return each.stream == lost.stream && (!is_made(each) || each.stream_port() == lost.stream_port());
  });
}

/// What comes to nothing is tried again, since our node may not be ready yet.
void Relinker::restore(const Link& lost) {
  const auto own = std::find_if(ports_.begin(), ports_.end(), [&](const auto& each) {
    return each.second.is_own && each.second.name == lost.own_port;
  });
  if (own == ports_.end()) return;
  const auto [output, input] =
      lost.is_recorded ? std::pair(own->first, lost.input) : std::pair(lost.output, own->first);
  pw_properties* const properties = pw_properties_new(PW_KEY_OBJECT_LINGER, "true", nullptr);
  pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_PORT, "%u", output);
  pw_properties_setf(properties, PW_KEY_LINK_INPUT_PORT, "%u", input);
  void* const link = pw_core_create_object(registry_.core(), "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK,
                                           &properties->dict, 0);
  pw_properties_free(properties);
  if (link == nullptr) return;
  pw_proxy_destroy(static_cast<pw_proxy*>(link));  // the link stays as long as its ports
  asked_.insert({output, input});
}

}  // namespace sonivo::pipewire
