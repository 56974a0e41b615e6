#pragma once

#include <pipewire/pipewire.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/loop_timer.h"

namespace sonivo::pipewire {

/// Sets params of objects that other processes own. The server hears nothing else of a client until the owner has
/// answered such a request, and some never do: so they go by a connection of their own, which ends with the object.
/// With the loop locked, all of it.
class VolumeRequest {
 public:
  enum class Outcome { taken, given_up };
  /// Owners have two seconds.
  static constexpr std::chrono::seconds kLimit{2};

  /// `ended` is called on the loop's thread, at most once and outside of the calls of this object: all requests have
  /// been answered, or the first that wasn't has had its time. It may destroy the object.
  VolumeRequest(Connection& connection, std::function<void(Outcome)> ended);
  ~VolumeRequest();
  VolumeRequest(const VolumeRequest&) = delete;
  VolumeRequest& operator=(const VolumeRequest&) = delete;

  /// False: there is no connection to be had.
  bool set_node_props(std::uint32_t node, const spa_pod& props);
  bool set_card_route(std::uint32_t card, const spa_pod& route);

 private:
  pw_proxy* bind(std::uint32_t id, const char* type, std::uint32_t version);
  bool sent();
  void end();

  const std::function<void(Outcome)> ended_;
  Outcome outcome_ = Outcome::given_up;
  LoopTimer end_;
  pw_core* core_ = nullptr;
  spa_hook core_hook_{};
  pw_registry* registry_ = nullptr;
  std::vector<pw_proxy*> bound_;
  int latest_ = 0;  ///< number of the answer that ends the latest request
};

}  // namespace sonivo::pipewire
