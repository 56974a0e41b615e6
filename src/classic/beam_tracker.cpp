#include "classic/beam_tracker.h"

namespace sonivo::classic {

BeamTracker::BeamTracker(const CommonHead& head, const NoisePath& param)
    : table_(head.syk2),
      pwr_bf_(param.pwr_bf),
      pwr_bf_nl_(param.pwr_bf_nl),
      nl_bf_(param.nl_bf),
      nl2_bf_(param.nl2_bf) {}

void BeamTracker::reset() {
  pwr_bf_.reset();
  pwr_bf_nl_.reset();
  nl_bf_.reset();
  nl2_bf_.reset();
}

void BeamTracker::process(const Magnitudes& Y, const Magnitudes& Z, bool voice) {
  FineBands level;
  band_level(table_, Y, level);
  pwr_bf_.process(level);

  band_level(table_, Z, level);
  pwr_bf_nl_.process(level);
  nl_bf_.process(pwr_bf_nl_.level(), voice);
  nl2_bf_.process(pwr_bf_nl_.level(), voice, nl_bf_.level());
}

BeamLevels BeamTracker::levels() const {
  return {pwr_bf_.level().first<kMaxBands>(), nl_bf_.level().first<kMaxBands>()};
}

}  // namespace sonivo::classic
