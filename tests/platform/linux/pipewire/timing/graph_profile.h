#pragma once

#include <pipewire/extensions/profiler.h>
#include <pipewire/impl.h>
#include <pipewire/pipewire.h>
#include <spa/param/profiler.h>
#include <spa/pod/iter.h>
#include <spa/pod/parser.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>

namespace sonivo::test {

/// How the nodes of a server keep its turns, as the server itself measures it.
class GraphProfile {
 public:
  struct Node {
    std::uint64_t turns = 0;
    std::uint64_t missed = 0;  ///< of those, turns that went on while it was busy
    std::uint64_t asleep = 0;  ///< of those, turns that went on before the machine had woken it
    std::int64_t busy_ns = 0;  ///< in all of its turns, from its being awake to its end
    std::int64_t longest_ns = 0;
    double mean_us() const {
      const std::uint64_t kept = turns - missed - asleep;
      return kept != 0 ? 1e-3 * static_cast<double>(busy_ns) / static_cast<double>(kept) : 0;
    }
  };

  explicit GraphProfile(const std::string& remote) {
    pw_init(nullptr, nullptr);
    loop_ = pw_thread_loop_new("profile", nullptr);
    context_ = pw_context_new(pw_thread_loop_get_loop(loop_), nullptr, 0);
    pw_context_load_module(context_, PW_EXTENSION_MODULE_PROFILER, nullptr, nullptr);
    pw_thread_loop_start(loop_);
    pw_thread_loop_lock(loop_);
    core_ = pw_context_connect(context_, pw_properties_new(PW_KEY_REMOTE_NAME, remote.c_str(), nullptr), 0);
    if (core_ != nullptr) listen();
    pw_thread_loop_unlock(loop_);
    if (core_ == nullptr) throw std::runtime_error("no server to be measured");
  }
  ~GraphProfile() {
    pw_thread_loop_stop(loop_);
    if (profiler_ != nullptr) pw_proxy_destroy(profiler_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
    pw_core_disconnect(core_);
    pw_context_destroy(context_);
    pw_thread_loop_destroy(loop_);
    pw_deinit();
  }
  GraphProfile(const GraphProfile&) = delete;
  GraphProfile& operator=(const GraphProfile&) = delete;

  /// By name, since they were last asked for.
  std::map<std::string, Node> take() {
    std::scoped_lock lock(mutex_);
    return std::exchange(nodes_, {});
  }

 private:
  void listen() {
    static const pw_registry_events events = [] {
      pw_registry_events table{};
      table.version = PW_VERSION_REGISTRY_EVENTS;
      table.global = [](void* self, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t, const spa_dict*) {
        if (std::string_view(type) == PW_TYPE_INTERFACE_Profiler) static_cast<GraphProfile*>(self)->bind(id);
      };
      return table;
    }();
    registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
    pw_registry_add_listener(registry_, &registry_hook_, &events, this);
  }
  void bind(std::uint32_t id) {
    static const pw_profiler_events events = [] {
      pw_profiler_events table{};
      table.version = PW_VERSION_PROFILER_EVENTS;
      table.profile = [](void* self, const spa_pod* pod) { static_cast<GraphProfile*>(self)->read(pod); };
      return table;
    }();
    profiler_ =
        static_cast<pw_proxy*>(pw_registry_bind(registry_, id, PW_TYPE_INTERFACE_Profiler, PW_VERSION_PROFILER, 0));
    if (profiler_ != nullptr) pw_proxy_add_object_listener(profiler_, &profiler_hook_, &events, this);
  }
  /// A turn of each driver.
  void read(const spa_pod* turns) {
    std::scoped_lock lock(mutex_);
    auto* const first = static_cast<spa_pod*>(SPA_POD_BODY(turns));
    spa_pod* turn = nullptr;
    SPA_POD_FOREACH(first, SPA_POD_BODY_SIZE(turns), turn) {
      if (!spa_pod_is_object_type(turn, SPA_TYPE_OBJECT_Profiler)) continue;
      const spa_pod_prop* part = nullptr;
      SPA_POD_OBJECT_FOREACH(reinterpret_cast<spa_pod_object*>(turn), part) {
        if (part->key == SPA_PROFILER_followerBlock) read_node(part->value);
      }
    }
  }
  void read_node(const spa_pod& block) {
    std::int32_t id = 0;
    const char* name = nullptr;
    std::int64_t previous = 0;
    std::int64_t signalled = 0;
    std::int64_t awake = 0;
    std::int64_t end = 0;
    std::int32_t status = 0;
    if (spa_pod_parse_struct(&block, SPA_POD_Int(&id), SPA_POD_String(&name), SPA_POD_Long(&previous),
                             SPA_POD_Long(&signalled), SPA_POD_Long(&awake), SPA_POD_Long(&end),
                             SPA_POD_Int(&status)) < 0) {
      return;
    }
    Node& node = nodes_[name];
    ++node.turns;
    if (status != kFinished) {
      ++(status == kAwake ? node.missed : node.asleep);
      return;
    }
    node.busy_ns += end - awake;
    node.longest_ns = std::max(node.longest_ns, end - awake);
  }

  static constexpr std::int32_t kAwake = 2, kFinished = 3;

  pw_thread_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook registry_hook_{};
  pw_proxy* profiler_ = nullptr;
  spa_hook profiler_hook_{};
  std::mutex mutex_;
  std::map<std::string, Node> nodes_;
};

}  // namespace sonivo::test
