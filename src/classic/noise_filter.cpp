#include "classic/noise_filter.h"

#include "classic/band_gain.h"

namespace sonivo::classic {

NoiseFilter::NoiseFilter(const CommonHead& head, const NoisePath& path, const NsNrBlock& param)
    : NoiseFilter(head.syk2, path, param.bypass == 1, param.dly_frame, param.common) {}

NoiseFilter::NoiseFilter(const CommonHead& head, const NoisePath& path, const NsNrBfBlock& param)
    : NoiseFilter(head.syk2, path, param.bypass == 1, param.dly_frame, param.common) {}

NoiseFilter::NoiseFilter(const BandTable& table, const NoisePath& path, bool bypass, std::size_t dly_frame,
                         const NsNrCommon& param)
    : table_(table), bypass_(bypass), line_(dly_frame), compressor_(param), synthesis_(path.syn) {
  for (std::size_t k = 0; k < kMaxBands; ++k) fixed_gain_[k] = path.ns_nr_eq[k] * param.vol;
}

void NoiseFilter::reset() {
  line_.reset();
  compressor_.reset();
  synthesis_.reset();
}

void NoiseFilter::process(const FineBands& gain, bool speech, std::span<float> out) {
  if (bypass_) {
    synthesis_.process(line_.newest(), out);
    return;
  }
  const std::span<ComplexFloat, kBins> O = line_.advance();
  FineBands band_gain;
  for (std::size_t k = 0; k < kMaxBands; ++k) band_gain[k] = gain[k] * fixed_gain_[k];
  const float sum = apply_band_gain(table_, band_gain, O);

  const float output_gain = compressor_.process(sum / kBins, speech);
  for (ComplexFloat& bin : O) {
    bin.re *= output_gain;
    bin.im *= output_gain;
  }
  synthesis_.process(O, out);
}

}  // namespace sonivo::classic
