#pragma once

#include <string>

namespace sonivo {

/// What feature extraction is told, by the names under which models set it ("frame-length" is frame_length).
/// Times are in ms, frequencies in Hz.
struct FeatureOptions {
  // Frames
  float sample_frequency = 16000.0f;
  float frame_length = 25.0f;
  float frame_shift = 10.0f;
  float dither = 1.0f;  ///< standard deviation of the noise added, in 16-bit scale; 0: none
  float preemphasis_coefficient = 0.97f;
  bool remove_dc_offset = true;
  std::string window_type = "povey";  ///< hamming, hanning, povey, rectangular, sine or blackman
  bool round_to_power_of_two = true;  ///< the transform's input is padded with zeros up to a power of two
  float blackman_coeff = 0.42f;
  bool snip_edges = true;  ///< only true is implemented
  bool allow_downsample = false;
  bool allow_upsample = false;
  int max_feature_vectors = -1;

  // Mel bins
  int num_mel_bins = 23;
  float low_freq = 20.0f;
  float high_freq = 0.0f;  ///< 0 or below: an offset from the Nyquist frequency, as is vtln_high
  float vtln_low = 100.0f;
  float vtln_high = -500.0f;
  bool debug_mel = false;  ///< the bins are printed to standard error as they are built
  bool htk_mode = false;

  // Output
  bool use_energy = false;
  float energy_floor = 0.0f;  ///< in the linear domain
  bool raw_energy = true;     ///< the energy is that before pre-emphasis and window
  bool htk_compat = false;    ///< the energy stands behind the bins, not before them
  bool use_log_fbank = true;
  bool use_power = true;  ///< otherwise magnitudes

  // Pitch: accepted, nothing computes it.
  float min_f0 = 50.0f;
  float max_f0 = 400.0f;
  float soft_min_f0 = 10.0f;
  float penalty_factor = 0.1f;
  float lowpass_cutoff = 1000.0f;
  float resample_frequency = 4000.0f;
  float delta_pitch = 0.005f;
  float nccf_ballast = 7000.0f;
  int lowpass_filter_width = 1;
  int upsample_filter_width = 5;
  int max_frames_latency = 0;
  int frames_per_chunk = 0;
  bool simulate_first_pass_online = false;
  int recompute_frame = 500;
  bool nccf_ballast_online = false;

  bool subtract_mean = false;
  float vtln_warp = 1.0f;
  float min_duration = 0.0f;
};

}  // namespace sonivo
