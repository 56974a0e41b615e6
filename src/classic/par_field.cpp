#include "classic/par_field.h"

#include <algorithm>

namespace sonivo::classic {

std::size_t entries_of(const Field& field, const BandCounts& counts, int own) {
  const auto count = [&]() -> int {
    switch (field.entries) {
      case Entries::all:
        return field.columns;
      case Entries::own:
        return own;
      case Entries::own_edges:
        return own + 1;
      case Entries::coarse:
        return counts.coarse;
      case Entries::coarse_edges:
        return counts.coarse + 1;
      case Entries::fine:
        return counts.fine;
      case Entries::pulse:
        return counts.pulse;
      case Entries::prm:
        return counts.prm;
      case Entries::prm_edges:
        return counts.prm + 1;
      case Entries::ui:
        return counts.ui;
      case Entries::ui_edges:
        return counts.ui + 1;
    }
    return 0;
  }();
  return static_cast<std::size_t>(std::clamp<int>(count, 0, field.columns));
}

}  // namespace sonivo::classic
