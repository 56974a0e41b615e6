#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "platform/linux/pipewire/connection.h"

namespace sonivo::pipewire {

/// Sees from the server's sound cards whether headphones are plugged in.
class HeadphoneWatch final : private Connection::User {
 public:
  /// `changed` is called on the loop's thread, with the loop locked: first once the cards are known, then at each
  /// change. It may not wait. What was told stays while there is no server.
  HeadphoneWatch(Connection& connection, std::function<void(bool plugged)> changed);
  ~HeadphoneWatch();
  HeadphoneWatch(const HeadphoneWatch&) = delete;
  HeadphoneWatch& operator=(const HeadphoneWatch&) = delete;

 private:
  struct Card;

  // Connection::User
  void connected(pw_core& core) override;
  void disconnected() override;

  void round_done();
  void add_card(std::uint32_t id);
  void look();

  Connection& connection_;
  const std::function<void(bool)> changed_;
  pw_core* core_ = nullptr;
  spa_hook core_hook_{};
  pw_registry* registry_ = nullptr;
  spa_hook registry_hook_{};
  std::map<std::uint32_t, std::unique_ptr<Card>> cards_;
  int rounds_ = 0;  ///< of questions and answers since the connection; after three the cards have told everything
  std::optional<bool> told_;
};

}  // namespace sonivo::pipewire
