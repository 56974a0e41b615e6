#include "classic/sound_levels.h"

#include <algorithm>

#include "classic/recursive_level.h"

namespace sonivo::classic {
namespace {

constexpr float kGone = 1e-30f;  // what follows zeros ends here instead of among the slow subnormal numbers

}  // namespace

SoundLevels::SoundLevels(const CommonHead& head, const NoisePath& param)
    : head_(head),
      param_(param),
      nl_snd_(param.nl_snd),
      detector_(param.vds, std::span(head.nbin_param_tbl).first(param.vds.nbin + 1u)) {
  reset();
}

void SoundLevels::reset() {
  levels_.fill(0.0f);
  std::fill_n(sound(), param_.pwr_snd.nbin, param_.pwr_snd.Pin_init);
  std::fill_n(detection(), param_.pwr_snd_vd.nbin, param_.pwr_snd_vd.Pin_init);
  nl_snd_.reset();
  detector_.reset();
}

void SoundLevels::process(const Magnitudes& magnitudes) {
  band_level(head_.syk1, magnitudes, {input(), kPlaces});
  follow_level(param_.pwr_snd, input(), sound());
  follow_level(param_.pwr_snd_vd, input(), detection());
  for (float& level : std::span(detection(), kMaxBands)) level = level < kGone ? 0.0f : level;
  nl_snd_.process({sound(), kPlaces}, voice());
  detector_.process({detection(), kMaxBands}, nl_snd_.level());
}

}  // namespace sonivo::classic
