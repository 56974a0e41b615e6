#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/linux/pipewire/loop_timer.h"
#include "platform/linux/pipewire/registry.h"

namespace sonivo::pipewire {

/// Sees from the server's sound cards whether headphones are plugged in.
class HeadphoneWatch final : private Registry::User {
 public:
  /// `changed` is called on the loop's thread, with the loop locked: first once the cards are known, then at each
  /// change. It may not wait. What was told stays while there is no server, and while the session manager, who has the
  /// cards, is away and comes back, four seconds at most; a card that goes by itself is told after one.
  HeadphoneWatch(Connection& connection, std::function<void(bool plugged)> changed);
  ~HeadphoneWatch();
  HeadphoneWatch(const HeadphoneWatch&) = delete;
  HeadphoneWatch& operator=(const HeadphoneWatch&) = delete;

 private:
  struct Card;

  // Registry::User
  void came(std::uint32_t id, std::string_view type, const spa_dict& properties) override;
  void went(std::uint32_t id) override;
  void told() override;
  void lost() override;

  void wait_for_cards(std::chrono::milliseconds limit);
  void look();

  const std::function<void(bool)> changed_;
  std::map<std::uint32_t, std::unique_ptr<Card>> cards_;
  std::uint32_t manager_ = SPA_ID_INVALID;  ///< its table of defaults
  std::optional<bool> told_;
  bool waits_ = false;  ///< since cards that are not there may come back
  LoopTimer waited_;
  Registry registry_;
};

}  // namespace sonivo::pipewire
