#include "classic/noise_reduction.h"

namespace sonivo::classic {
namespace {

using Spectrum = std::array<ComplexFloat, kBins>;

CoarseBounds coarse_bounds(const CommonHead& head) {
  return std::span(head.nbin_param_tbl).first(static_cast<std::size_t>(head.syk1.nbin) + 1);
}

}  // namespace

NoiseReduction::NoiseReduction(const KeyCancelParam& param)
    : analysis_(param.noise.ana),
      beam_(param.head, param.noise),
      sound_(param.head, param.noise),
      reducer_(param.ns_nr, coarse_bounds(param.head)),
      filter_(param.head, param.noise, param.ns_nr) {}

void NoiseReduction::reset() {
  analysis_.reset();
  beam_.reset();
  sound_.reset();
  reducer_.reset();
  filter_.reset();
}

void NoiseReduction::process(std::span<const float> clean, std::span<const float> raw, std::span<float> out) {
  const std::span<ComplexFloat, kBins> Y = filter_.spectrum();
  Spectrum Z{};
  analysis_.process(clean, raw, Y, Z);

  const Magnitudes magnitudes(Y);
  beam_.process(magnitudes, Magnitudes(Z), voice());
  sound_.process(magnitudes);
  reducer_.process(beam_.levels());
  filter_.process(reducer_.gain(), reducer_.speech(), out);
}

TwoBeamNoiseReduction::TwoBeamNoiseReduction(const BeamFormingKeyCancelParam& param)
    : analysis_{Analysis(param.noise.ana), Analysis(param.noise.ana)},
      beam_{BeamTracker(param.head, param.noise), BeamTracker(param.head, param.noise)},
      sound_(param.head, param.noise),
      reducer_(param.ns_nr, coarse_bounds(param.head)),
      filter_(param.head, param.noise, param.ns_nr) {}

void TwoBeamNoiseReduction::reset() {
  for (Analysis& analysis : analysis_) analysis.reset();
  for (BeamTracker& beam : beam_) beam.reset();
  sound_.reset();
  reducer_.reset();
  filter_.reset();
}

void TwoBeamNoiseReduction::process(const std::array<std::span<const float>, kBeams>& clean,
                                    const std::array<std::span<const float>, kBeams>& raw, std::span<float> out) {
  const std::span<ComplexFloat, kBins> Y0 = filter_.spectrum();
  Spectrum Y1{}, Z0{}, Z1{};
  analysis_[0].process(clean[0], raw[0], Y0, Z0);
  analysis_[1].process(clean[1], raw[1], Y1, Z1);

  const Magnitudes magnitudes(Y0);
  beam_[0].process(magnitudes, Magnitudes(Z0), voice());
  beam_[1].process(Magnitudes(Y1), Magnitudes(Z1), voice());
  sound_.process(magnitudes);
  reducer_.process(beam_[0].levels(), beam_[1].levels());
  filter_.process(reducer_.gain(), reducer_.speech(), out);
}

}  // namespace sonivo::classic
