#pragma once

#include <spa/pod/pod.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sonivo::pipewire {

/// A place where audio leaves or enters a sound card, such as its headphone jack.
struct CardPort {
  enum class Availability { unknown, no, yes };  ///< unknown: the card can't tell whether something is plugged in

  std::int32_t index = 0;  ///< the card's number for it
  std::uint32_t direction = 0;
  Availability availability = Availability::unknown;
  std::string type;                         ///< such as "headphones" or "speaker"; empty: the card doesn't tell
  bool in_use = false;                      ///< audio takes this way now
  std::optional<std::int32_t> device = {};  ///< which of the card's nodes goes this way, while it is in use
};

/// The port that a card's route leads to, whether or not it is in use; none when the param is no route.
std::optional<CardPort> read_port(const spa_pod& param);

/// Takes what a route says of a port up into those of its card. A route in use serves one of the card's nodes, and
/// takes the place of the one that did before; others of the card may go elsewhere at the same time.
void note_port(std::vector<CardPort>& ports, CardPort port, bool in_use);

/// Whether headphones are plugged into a card with these ports. `form_factor` is what the card says of its shape, empty
/// when nothing: one that is itself a headset is plugged in as long as it is there.
bool has_headphones(std::string_view form_factor, std::span<const CardPort> ports);

}  // namespace sonivo::pipewire
