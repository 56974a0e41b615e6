#include "classic/par_reader.h"

#include <new>

#include "classic/par_beam_filter.h"
#include "classic/par_block_reader.h"
#include "classic/windows.h"

namespace sonivo::classic {

namespace {

void make_windows(int hop, int points, AnaBlock& ana, SynBlock& syn) {
  ana.hop = hop;
  ana.fft = points;
  make_analysis_window(hop, points, ana.window);
  syn.hop = static_cast<std::int16_t>(hop);
  syn.fft = static_cast<std::int16_t>(points);
  make_synthesis_window(hop, points, syn.window);
}

int read_head(BlockReader& reader, CommonHead& head) {
  head.hop = kHop;
  head.bins = kBins;
  int errors = reader.read("", tables::kFrame, &head);
  errors += reader.read_bands("syk1.", tables::kCoarseBands, head.syk1, reader.counts().coarse);
  errors += reader.read_bands("syk2.", tables::kBands, head.syk2, reader.counts().fine);
  errors += reader.read("", tables::kFineBounds, head.nbin_param_tbl);
  errors += reader.read_input_filter(head.ain);
  return errors;
}

int read_filters(ParFile& file, BeamFormingKeyCancelParam& param) {
  int errors = 0;
  for (std::size_t o = 0; o < kBeams; ++o) {
    for (std::size_t i = 0; i < kBeams; ++i) {
      const auto taps = file.referenced(indexed("fd_fbf_ain_flt[%d][%d]", o, i));
      if (taps) {
        make_filter_spectra(*taps, param.filter[o][i]);
      } else {
        ++errors;
      }
    }
  }
  return errors;
}

int read_noise_path(BlockReader& reader, NoisePath& noise) {
  const int coarse = reader.counts().coarse;
  const int fine = reader.counts().fine;
  make_windows(kHop, kFft, noise.ana, noise.syn);
  int errors = reader.read("ana.", tables::kAna, &noise.ana);
  errors += reader.read_banded("pwr_snd.", tables::kPwr, noise.pwr_snd, coarse);
  errors += reader.read_banded("nl_snd.", tables::kNl, noise.nl_snd, coarse);
  errors += reader.read_banded("pwr_snd_vd.", tables::kPwr, noise.pwr_snd_vd, fine);
  errors += reader.read_banded("vds.", tables::kVds, noise.vds, coarse);
  errors += reader.read_banded("pwr_bf.", tables::kPwr, noise.pwr_bf, fine);
  errors += reader.read_banded("pwr_bf_nl.", tables::kPwr, noise.pwr_bf_nl, fine);
  errors += reader.read_banded("nl_bf.", tables::kNl, noise.nl_bf, fine);
  errors += reader.read_banded("nl2_bf.", tables::kNl2, noise.nl2_bf, fine);
  errors += reader.read("ns_nr.", tables::kFineGain, noise.ns_nr_eq);
  return errors;
}

int read_noise_reduction(BlockReader& reader, std::span<const Field> head, auto& block) {
  block.bins = kBins;
  block.fine_nbin = static_cast<std::uint16_t>(reader.counts().fine);
  block.coarse_nbin = static_cast<std::uint16_t>(reader.counts().coarse);
  int errors = reader.read("ns_nr.", head, &block);
  NsNrCommon& common = block.common;
  errors += reader.read("ns_nr.", tables::kNsNrCommon, &common);
  make_slopes(common.gn_nl_thi1, common.gn_nl_thi2, common.gn_nl_tho1, common.gn_nl_tho2, common.gn_nl_slope);
  make_slopes(common.avg_g_thi1, common.avg_g_thi2, common.avg_g_tho1, common.avg_g_tho2, common.avg_g_slope);
  return errors;
}

int read_pulse_suppressor(BlockReader& reader, PulseSupBlock& block) {
  block.bins = kPulseBins;
  block.pulse_nbin = static_cast<std::uint16_t>(reader.counts().pulse);
  block.prm_nbin = static_cast<std::uint16_t>(reader.counts().prm);
  block.ui_nbin = static_cast<std::uint16_t>(reader.counts().ui);
  const int errors = reader.read("pulse_sup.", tables::kPulseSup, &block);
  make_slopes(block.avg_g_thi1, block.avg_g_thi2, block.avg_g_tho1, block.avg_g_tho2, block.avg_g_slope);
  return errors;
}

int read_delay(BlockReader& reader, const char* prefix, DelayBlock& block) {
  block.block = 2 * kPulseBins;
  return reader.read(prefix, tables::kDelay, &block);
}

int read_noise_generator(BlockReader& reader, NgenBlock& block) {
  block.frame = kPulseHop;
  block.pulse_nbin = static_cast<std::uint16_t>(reader.counts().pulse);
  block.prm_nbin = static_cast<std::uint16_t>(reader.counts().prm);
  return reader.read("ngen_f_pulse.", tables::kNgen, &block);
}

int read_pulse_path(BlockReader& reader, PulsePath& pulse) {
  make_windows(kPulseHop, kPulseFft, pulse.ana_pulse, pulse.syn_pulse);
  int errors = reader.read("ana_pulse.", tables::kAnaPulse, &pulse.ana_pulse);
  errors += reader.read_bands("syk_pulse.", tables::kBands, pulse.syk_pulse, reader.counts().pulse);
  errors += reader.read_bands("syk_pulse_prm.", tables::kGroups, pulse.syk_pulse_prm, reader.counts().prm);
  errors += reader.read_bands("syk_pulse_prm_ui.", tables::kGroups, pulse.syk_pulse_prm_ui, reader.counts().ui);
  errors += reader.read("", tables::kPrmBounds, pulse.nbin_pulse_param_tbl);
  errors += reader.read("", tables::kUiBounds, pulse.nbin_pulse_param_ui_tbl);
  const int bands = reader.counts().pulse;
  errors += reader.read_banded("diff_power.", tables::kDiffPower, pulse.diff_power, bands);
  errors += read_pulse_suppressor(reader, pulse.pulse_sup);
  errors += read_delay(reader, "pulse_sup_delay.", pulse.pulse_sup_delay);
  errors += read_delay(reader, "pulse_sup_add_delay.", pulse.pulse_sup_add_delay);
  errors += reader.read("pulse_sup_add.", tables::kFillThreshold, &pulse.pulse_sup_add_gn_th);
  errors += reader.read_banded("pwr_pulse.", tables::kPwr, pulse.pwr_pulse, bands);
  errors += reader.read_banded("nl_pulse.", tables::kNl, pulse.nl_pulse, bands);
  errors += read_noise_generator(reader, pulse.ngen_f_pulse);
  return errors;
}

}  // namespace

int ReadParams(ParSource& source, KeyCancelParam& param) {
  BlockReader noise(source, kHop);
  BlockReader pulse(source, kPulseHop);
  int errors = read_head(noise, param.head);
  errors += read_noise_path(noise, param.noise);
  errors += read_noise_reduction(noise, tables::kNsNrHead, param.ns_nr);
  param.pulse.hop = kPulseHop;
  param.pulse.bins = kPulseBins;
  errors += noise.read("", tables::kParamID, &param.paramID);
  errors += read_pulse_path(pulse, param.pulse);
  param.version_major = 0;
  param.version_minor = 4;
  return errors;
}

int ReadParams(ParFile& file, BeamFormingKeyCancelParam& param) {
  param = {};
  BlockReader noise(file, kHop);
  BlockReader pulse(file, kPulseHop);
  int errors = read_head(noise, param.head);
  param.fbf = {kBeams, kBeams, kHop, kBeamBins, kBeamFft, kPartitions};
  errors += read_filters(file, param);
  errors += read_noise_path(noise, param.noise);
  param.ns_nr.sources = kBeams;
  errors += read_noise_reduction(noise, tables::kNsNrBfHead, param.ns_nr);
  errors += noise.read("ns_nr.", tables::kNsNrBfTail,
                       reinterpret_cast<std::byte*>(&param.ns_nr) + offsetof(NsNrBfBlock, nbin_avg_g_L));
  param.pulse.hop = kPulseHop;
  param.pulse.bins = kPulseBins;
  errors += noise.read("", tables::kParamID, &param.paramID);
  errors += read_pulse_path(pulse, param.pulse);
  param.version_major = 1;
  param.version_minor = 0;
  return errors;
}

template <typename Param>
std::unique_ptr<Param> MakeParams(const std::string& path, std::ostream& messages) try {
  auto param = std::make_unique<Param>();
  ParFile file(path, messages);
  if (ReadParams(file, *param) != 0) {
    messages << "parametre error\n";
    return nullptr;
  }
  return param;
} catch (const std::bad_alloc&) {
  messages << "memory empty\n";
  return nullptr;
}

template std::unique_ptr<KeyCancelParam> MakeParams(const std::string&, std::ostream&);
template std::unique_ptr<BeamFormingKeyCancelParam> MakeParams(const std::string&, std::ostream&);

}  // namespace sonivo::classic
