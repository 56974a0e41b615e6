#include "classic/param_check.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

#include "classic/param_numbers.h"

namespace sonivo::classic {

namespace {

using SizeFault = const char*;  // null: none

constexpr int kMaxDelayFrames = 16;                   // dly_frame: spectra that the noise stage keeps
constexpr int kMaxDelayFloats = 64 * 2 * kPulseBins;  // of a spectrum delay of the key stage: 64 sub-blocks
constexpr int kMaxDiffPowerRows = 256;

SizeFault first_of(std::initializer_list<SizeFault> faults) {
  for (const SizeFault fault : faults) {
    if (fault != nullptr) return fault;
  }
  return nullptr;
}

SizeFault unless(bool holds, SizeFault fault) { return holds ? nullptr : fault; }

/// Every band covers at least one bin, and no bin behind the spectrum: levels are sums over the bins times 1 / width.
bool covers_bins(const BandTable& table, int highest_count, int bins) {
  if (table.nbin < 1 || table.nbin > highest_count) return false;
  for (int b = 0; b < table.nbin; ++b) {
    if (table.f[b] >= table.f[b + 1]) return false;
  }
  return table.f[table.nbin] <= bins;
}

/// Groups of bands, some of them empty maybe, none behind the bands.
bool groups_bands(std::span<const std::uint16_t> bounds, int bands) {
  for (std::size_t i = 1; i < bounds.size(); ++i) {
    if (bounds[i - 1] > bounds[i]) return false;
  }
  return bounds.back() <= bands;
}

std::span<const std::uint16_t> bounds_of(const std::uint16_t* first, int groups) {
  return {first, static_cast<std::size_t>(groups) + 1};
}

/// The transforms are built for one size each, and spectra have places for half of it.
bool transform_fits(const AnaBlock& ana, const SynBlock& syn, int hop, int points) {
  const int half = points / 2;
  const bool sizes = ana.hop == hop && ana.fft == points && syn.hop == hop && syn.fft == points;
  const bool bins = ana.fnum_base_out >= 0 && ana.fnum_base_out <= half + 1 && ana.fnum_out >= 0 &&
                    ana.fnum_out <= half && ana.fnum_base_out + ana.fnum_out <= half + 1;
  return sizes && bins;
}

SizeFault fault_of_bands(const CommonHead& head) {
  if (!covers_bins(head.syk1, kCoarseBands, kBins)) return "syk1 is not 1 to 12 bands with rising edges up to 512";
  if (!covers_bins(head.syk2, kMaxBands, kBins)) return "syk2 is not 1 to 60 bands with rising edges up to 512";
  return unless(groups_bands(bounds_of(head.nbin_param_tbl, head.syk1.nbin), head.syk2.nbin),
                "nbin_param_tbl does not rise or leads behind the bands of syk2");
}

SizeFault fault_of(const CommonHead& head) {
  return first_of({
      unless(head.hop == kHop, "the hop of the noise path is not 192"),
      unless(head.bins == kBins, "the bins of the noise path are not 512"),
      fault_of_bands(head),
      unless(head.ain.frame == kHop, "the frame of ain is not 192"),
      // Sections have six places.
      unless(head.ain.stage_num <= kFilterStages, "ain.stage_num is more than 6"),
  });
}

/// Blocks walk over as many bands as they state, in arrays of their table's count.
SizeFault fault_of(const NoisePath& noise, int coarse, int fine) {
  return first_of({
      unless(transform_fits(noise.ana, noise.syn, kHop, kFft), "ana does not describe a transform of 1024 points"),
      unless(noise.pwr_snd.nbin == coarse && noise.nl_snd.nbin == coarse && noise.vds.nbin == coarse,
             "pwr_snd, nl_snd or vds has another count of bands than syk1"),
      unless(noise.pwr_snd_vd.nbin == fine && noise.pwr_bf.nbin == fine && noise.pwr_bf_nl.nbin == fine &&
                 noise.nl_bf.nbin == fine && noise.nl2_bf.nbin == fine,
             "pwr_snd_vd, pwr_bf, pwr_bf_nl, nl_bf or nl2_bf has another count of bands than syk2"),
      // The pull along frequency starts at this band.
      unless(noise.nl2_bf.base_freq < fine, "nl2_bf.base_freq is no band of syk2"),
  });
}

SizeFault fault_of(const NsNrCommon& common, int coarse, int fine) {
  const int mean_bands = common.nw_det_band_max - common.nw_det_band_min;
  // The level of the wide noise is the mean of that many bands, from the first one on, of arrays of 60.
  if (mean_bands < 1 || mean_bands > kMaxBands) return "nw_det_band_max is not 1 to 60 above nw_det_band_min";
  for (int i = 0; i < kWideLevels; ++i) {
    // The envelope starts with the level of this band and ends at an entry of nbin_param_tbl.
    if (common.nw_start_nbin[i] >= fine) return "nw_start_nbin is no band of syk2";
    if (common.nw_end_nbin_param[i] > coarse) return "nw_end_nbin_param is behind the bands of syk1";
  }
  return nullptr;
}

template <typename Block>
SizeFault fault_of(const Block& ns_nr, const CommonHead& head) {
  return first_of({
      unless(ns_nr.bins == kBins, "the bins of ns_nr are not 512"),
      unless(ns_nr.fine_nbin == head.syk2.nbin, "ns_nr has another count of fine bands than syk2"),
      unless(ns_nr.coarse_nbin == head.syk1.nbin, "ns_nr has another count of coarse bands than syk1"),
      // The delay line is allocated when the chain opens.
      unless(ns_nr.dly_frame <= kMaxDelayFrames, "ns_nr.dly_frame is more than 16"),
      fault_of(ns_nr.common, head.syk1.nbin, head.syk2.nbin),
  });
}

SizeFault fault_of_second_beam(const NsNrBfBlock& ns_nr, int fine) {
  return first_of({
      unless(ns_nr.sources == kBeams, "ns_nr has not 2 sources"),
      // The mean of the gain runs over the bands from L to H.
      unless(ns_nr.nbin_avg_g_L < ns_nr.nbin_avg_g_H && ns_nr.nbin_avg_g_H <= fine,
             "nbin_avg_g_L to nbin_avg_g_H are no bands of syk2"),
  });
}

/// Where the product of each group takes its factors. Too many bands in a group that nobody uses are a fault as well:
/// the reading of a par file ends there, so the rest of such a block is missing.
bool npm_groups_fit(const PulseSupBlock& block) {
  if (block.npm_num > kNpmGroups) return false;
  for (const std::uint16_t bands : block.npm_band_num) {
    if (bands > kNpmGroups) return false;
  }
  for (int i = 0; i < block.npm_num; ++i) {
    for (int j = 0; j < block.npm_band_num[i]; ++j) {
      if (block.npm_band[i][j] >= block.pulse_nbin) return false;
    }
  }
  return true;
}

bool delay_fits(const DelayBlock& block) {
  return block.block == 2 * kPulseBins && block.delay >= 0 && block.delay <= kMaxDelayFloats;
}

/// History of the newest rows that are skipped and of those that are looked through, allocated when the chain opens.
bool history_fits(const DiffPowerBlock& block) {
  return block.delay_frame >= 1 && block.window_len >= 1 && block.window_len <= kMaxDiffPowerRows - block.delay_frame;
}

/// Tables of the key stage.
SizeFault fault_of_bands(const PulsePath& pulse) {
  const int prm = pulse.syk_pulse_prm.nbin;
  const int ui = pulse.syk_pulse_prm_ui.nbin;
  const bool tables = covers_bins(pulse.syk_pulse, kMaxBands, kPulseBins) &&
                      covers_bins(pulse.syk_pulse_prm, kPulseGroups, kPulseBins) &&
                      covers_bins(pulse.syk_pulse_prm_ui, kPulseGroups, kPulseBins);
  if (!tables) return "syk_pulse, syk_pulse_prm or syk_pulse_prm_ui has too many bands or edges that don't rise to 64";
  const int bands = pulse.syk_pulse.nbin;
  const bool groups = groups_bands(bounds_of(pulse.nbin_pulse_param_tbl, prm), bands) &&
                      groups_bands(bounds_of(pulse.nbin_pulse_param_ui_tbl, ui), bands);
  return unless(groups, "nbin_pulse_param_tbl or nbin_pulse_param_ui_tbl does not rise or leads behind syk_pulse");
}

SizeFault fault_of(const PulsePath& pulse) {
  const int bands = pulse.syk_pulse.nbin;
  const int prm = pulse.syk_pulse_prm.nbin;
  const PulseSupBlock& sup = pulse.pulse_sup;
  const NgenBlock& ngen = pulse.ngen_f_pulse;
  return first_of({
      unless(pulse.hop == kPulseHop, "the hop of the pulse path is not 64"),
      unless(pulse.bins == kPulseBins, "the bins of the pulse path are not 64"),
      unless(transform_fits(pulse.ana_pulse, pulse.syn_pulse, kPulseHop, kPulseFft),
             "ana_pulse does not describe a transform of 128 points"),
      fault_of_bands(pulse),
      unless(pulse.diff_power.nbin == bands && pulse.pwr_pulse.nbin == bands && pulse.nl_pulse.nbin == bands,
             "diff_power, pwr_pulse or nl_pulse has another count of bands than syk_pulse"),
      unless(history_fits(pulse.diff_power), "diff_power is not 1 row or more of delay and window, 256 together"),
      unless(sup.bins == kPulseBins && sup.pulse_nbin == bands && sup.prm_nbin == prm &&
                 sup.ui_nbin == pulse.syk_pulse_prm_ui.nbin,
             "pulse_sup has other counts of bands than the tables"),
      unless(npm_groups_fit(sup), "pulse_sup has more than 3 groups, more than 3 bands in one or a band outside"),
      unless(delay_fits(pulse.pulse_sup_delay), "pulse_sup_delay is not 0 to 8192 floats in blocks of 128"),
      unless(delay_fits(pulse.pulse_sup_add_delay), "pulse_sup_add_delay is not 0 to 8192 floats in blocks of 128"),
      unless(ngen.frame == kPulseHop, "the frame of ngen_f_pulse is not 64"),
      unless(ngen.pulse_nbin == bands && ngen.prm_nbin == prm, "ngen_f_pulse has other counts than the tables"),
  });
}

/// The beamformer's arrays have these sizes.
SizeFault fault_of(const FbfHeader& fbf) {
  const bool fits = fbf.inputs == kBeams && fbf.outputs == kBeams && fbf.hop == kHop && fbf.bins == kBeamBins &&
                    fbf.fft == kBeamFft && fbf.partitions == kPartitions;
  return unless(fits, "the beam filters are not 2 by 2 of 2 partitions, hop 192, 512 points");
}

SizeFault fault_of_sizes(const KeyCancelParam& param) {
  const CommonHead& head = param.head;
  return first_of({fault_of(head), fault_of(param.noise, head.syk1.nbin, head.syk2.nbin), fault_of(param.ns_nr, head),
                   fault_of(param.pulse)});
}

SizeFault fault_of_sizes(const BeamFormingKeyCancelParam& param) {
  const CommonHead& head = param.head;
  return first_of({fault_of(head), fault_of(param.fbf), fault_of(param.noise, head.syk1.nbin, head.syk2.nbin),
                   fault_of(param.ns_nr, head), fault_of_second_beam(param.ns_nr, head.syk2.nbin),
                   fault_of(param.pulse)});
}

template <typename Param>
std::optional<std::string> fault_of_all(const Param& param) {
  if (const SizeFault fault = fault_of_sizes(param)) return fault;
  return harmful_number(param);
}

}  // namespace

std::optional<std::string> first_fault(const KeyCancelParam& param) { return fault_of_all(param); }
std::optional<std::string> first_fault(const BeamFormingKeyCancelParam& param) { return fault_of_all(param); }

bool usable(const KeyCancelParam& param) { return !first_fault(param); }
bool usable(const BeamFormingKeyCancelParam& param) { return !first_fault(param); }

}  // namespace sonivo::classic
