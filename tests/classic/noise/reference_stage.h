#pragma once

#include <array>
#include <deque>

#include "reference_gain.h"
#include "reference_levels.h"

namespace sonivo::classic::reference {

/// Analysis and levels of the signal and the noise of one beam.
class Beam {
 public:
  Beam(const CommonHead& head, const NoisePath& path)
      : analysis_(path.ana),
        head_(head),
        path_(path),
        signal(head.syk2.nbin, path.pwr_bf.Pin_init),
        sound_(head.syk2.nbin, path.pwr_bf_nl.Pin_init),
        tracker_(path.nl_bf),
        harmonic_(path.nl2_bf) {}

  void process(const Signal& clean, const Signal& raw, bool voice) {
    Spectrum Z;
    analysis_.process(clean, raw, Y, Z);
    const Signal y = band_level(head_.syk2, Y), z = band_level(head_.syk2, Z);
    for (std::size_t k = 0; k < y.size(); ++k) {
      signal[k] = recursive(path_.pwr_bf, signal[k], y[k]);
      sound_[k] = recursive(path_.pwr_bf_nl, sound_[k], z[k]);
    }
    tracker_.process(sound_, voice);
    harmonic_.process(sound_, voice, tracker_.level);
  }

  const Signal& noise() const { return tracker_.level; }

 private:
  Analysis analysis_;
  const CommonHead& head_;
  const NoisePath& path_;

 public:
  Spectrum Y;
  Signal signal;

 private:
  Signal sound_;
  NoiseLevelTracker tracker_;
  HarmonicNoiseTracker harmonic_;
};

/// What a run of the stage has been through, so that tests can tell that they saw it.
struct History {
  int voice_changes = 0, gate_changes = 0, guarded_frames = 0;
  std::array<int, 4> wide_frames{};  ///< none, step 0, 1, 2
  double largest_compressor_gain = 1.0, smallest_compressor_gain = 1.0;
};

/// The whole noise stage: one signal with NsNrBlock, two beams with NsNrBfBlock.
template <typename Blob>
class NoiseStage {
 public:
  static constexpr std::size_t kSignals = requires(Blob b) { b.fbf; }
  ? 2 : 1;

  explicit NoiseStage(const Blob& blob)
      : param_(blob),
        beams_(kSignals, Beam(blob.head, blob.noise)),
        nl_snd_(blob.noise.nl_snd),
        detector_(blob.noise.vds),
        reducer(blob.ns_nr.common, blob.head.syk2.nbin, blob.head.syk1.nbin, blob.head.nbin_param_tbl),
        line_(blob.ns_nr.dly_frame + 1u, Spectrum(kBins)),
        synthesis_(blob.noise.syn) {
    for (std::size_t b = 0; b < blob.noise.pwr_snd.nbin; ++b) memory_[24 + b] = blob.noise.pwr_snd.Pin_init;
    for (std::size_t b = 0; b < blob.noise.pwr_snd_vd.nbin; ++b) memory_[48 + b] = blob.noise.pwr_snd_vd.Pin_init;
  }

  Signal process(const std::vector<Signal>& clean, const std::vector<Signal>& raw) {
    const bool previous_voice = voice;
    for (std::size_t j = 0; j < kSignals; ++j) beams_[j].process(clean[j], raw[j], voice);
    detect_voice(beams_[0].Y);
    history.voice_changes += previous_voice != voice;

    if (param_.ns_nr.bypass == 1) return synthesis_.process(beams_[0].Y);

    const bool previous_gate = reducer.gate;
    if constexpr (kSignals == 2) {
      const Signal Sg[2] = {beams_[0].signal, beams_[1].signal};
      const Signal Nl[2] = {beams_[0].noise(), beams_[1].noise()};
      reducer.two_beams(param_.ns_nr, Sg, Nl);
    } else {
      reducer.one_channel(beams_[0].signal, beams_[0].noise());
    }
    history.gate_changes += previous_gate != reducer.gate;
    history.guarded_frames += reducer.guarded;
    ++history.wide_frames[std::size_t(reducer.i + 1)];
    return apply(beams_[0].Y);
  }

  bool voice = false;
  History history;

 private:
  void detect_voice(const Spectrum& Y) {
    const Signal level = band_level(param_.head.syk1, Y);
    std::copy(level.begin(), level.end(), memory_.begin());
    for (std::size_t b = 0; b < param_.noise.pwr_snd.nbin; ++b) {
      memory_[24 + b] = recursive(param_.noise.pwr_snd, memory_[24 + b], memory_[b]);
    }
    for (std::size_t k = 0; k < param_.noise.pwr_snd_vd.nbin; ++k) {
      memory_[48 + k] = recursive(param_.noise.pwr_snd_vd, memory_[48 + k], memory_[k]);
    }
    nl_snd_.process(Signal(memory_.begin() + 24, memory_.begin() + 24 + param_.noise.nl_snd.nbin), voice);
    detector_.process(memory_.data() + 48, nl_snd_.level, param_.head.nbin_param_tbl);
    voice = detector_.active;
  }

  Signal apply(const Spectrum& Y) {
    const NsNrCommon& common = param_.ns_nr.common;
    line_.pop_front();
    line_.push_back(Y);
    Spectrum O = line_.front();

    std::vector<double> per_bin(kBins, 0.0);
    const BandTable& table = param_.head.syk2;
    for (std::size_t b = 0; b < table.nbin; ++b) {
      for (std::size_t k = table.f[b]; k < table.f[b + 1]; ++k) {
        per_bin[k] = reducer.G[b] * param_.noise.ns_nr_eq[b] * common.vol;
      }
    }
    double sum = 0.0;
    for (std::size_t k = 0; k < O.size(); ++k) {
      O[k] *= per_bin[k];
      sum += std::abs(O[k].real()) + std::abs(O[k].imag());
    }

    double q = 1.0;
    if (reducer.gate) {
      const double a = sum / 512.0, x = a * common.comp_gain;
      q = common.comp_gain;
      if (x > common.comp_clip_th) q = ((x - common.comp_clip_th) * common.comp_clip_gain + common.comp_clip_th) / a;
    }
    const double c = q > compGain_ ? common.comp_pwc_up : common.comp_pwc_dn;
    compGain_ = (1.0 - c) * q + c * compGain_;
    history.largest_compressor_gain = std::max(history.largest_compressor_gain, compGain_);
    history.smallest_compressor_gain = std::min(history.smallest_compressor_gain, compGain_);
    for (auto& bin : O) bin *= compGain_;
    return synthesis_.process(O);
  }

  const Blob& param_;
  std::vector<Beam> beams_;
  std::array<double, 24 + 24 + 60> memory_{};  // band levels, state of pwr_snd, state of pwr_snd_vd
  NoiseLevelTracker nl_snd_;
  VoiceDetector detector_;

 public:
  NoiseReducer reducer;

 private:
  std::deque<Spectrum> line_;
  double compGain_ = 1.0;
  Synthesis synthesis_;
};

}  // namespace sonivo::classic::reference
