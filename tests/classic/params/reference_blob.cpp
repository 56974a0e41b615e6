#include "reference_blob.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>
#include <set>
#include <stdexcept>

namespace sonivo::classic::reference {

namespace {

using std::numbers::pi;

std::string element(const std::string& name, int i) {
  std::string key = name;
  return key.replace(key.rfind("%d"), 2, std::to_string(i));
}

}  // namespace

std::array<double, 5> biquad(int type, double Q, double f0, double G) {
  const double K = std::tan(pi * f0 / 48000);
  const double V = std::pow(10, std::abs(G) / 20);
  const double W = std::sqrt(2 * V);
  const double R = std::sqrt(2);
  double n = 1 / (1 + K / Q + K * K);
  double b0 = 1;
  double b1 = 0;
  double b2 = 0;
  double a1 = 2 * (K * K - 1) * n;
  double a2 = (1 - K / Q + K * K) * n;
  switch (type) {
    case 0:
      return {1, 0, 0, 0, 0};
    case 1:
      b0 = b2 = K * K * n;
      b1 = 2 * b0;
      break;
    case 2:
      b0 = b2 = n;
      b1 = -2 * n;
      break;
    case 3:
      b0 = K / Q * n;
      b2 = -b0;
      break;
    case 4:
      b0 = b2 = (1 + K * K) * n;
      b1 = a1;
      break;
    case 5:
      if (G >= 0) {
        b0 = (1 + V * K / Q + K * K) * n;
        b2 = (1 - V * K / Q + K * K) * n;
      } else {
        n = 1 / (1 + V * K / Q + K * K);
        b0 = (1 + K / Q + K * K) * n;
        b2 = (1 - K / Q + K * K) * n;
        a1 = 2 * (K * K - 1) * n;
        a2 = (1 - V * K / Q + K * K) * n;
      }
      b1 = a1;
      break;
    case 6:
      if (G >= 0) {
        n = 1 / (1 + R * K + K * K);
        b0 = (1 + W * K + V * K * K) * n;
        b1 = 2 * (V * K * K - 1) * n;
        b2 = (1 - W * K + V * K * K) * n;
        a1 = 2 * (K * K - 1) * n;
        a2 = (1 - R * K + K * K) * n;
      } else {
        n = 1 / (1 + W * K + V * K * K);
        b0 = (1 + R * K + K * K) * n;
        b1 = 2 * (K * K - 1) * n;
        b2 = (1 - R * K + K * K) * n;
        a1 = 2 * (V * K * K - 1) * n;
        a2 = (1 - W * K + V * K * K) * n;
      }
      break;
    default:
      if (G >= 0) {
        n = 1 / (1 + R * K + K * K);
        b0 = (V + W * K + K * K) * n;
        b1 = 2 * (K * K - V) * n;
        b2 = (V - W * K + K * K) * n;
        a1 = 2 * (K * K - 1) * n;
        a2 = (1 - R * K + K * K) * n;
      } else {
        n = 1 / (V + W * K + K * K);
        b0 = (1 + R * K + K * K) * n;
        b1 = 2 * (K * K - 1) * n;
        b2 = (1 - R * K + K * K) * n;
        a1 = 2 * (K * K - V) * n;
        a2 = (V - W * K + K * K) * n;
      }
  }
  return {b0, b1, b2, -a1, -a2};
}

double analysis_window(int i, int H, int N) {
  if (i < N - H) return 0.5 / std::sqrt(N) * std::sqrt(0.5 - 0.5 * std::cos(2 * pi * i / (2.0 * (N - H))));
  const int j = i - (N - H) + H;
  return 0.5 / std::sqrt(N) * std::sqrt(0.5 - 0.5 * std::cos(2 * pi * j / (2.0 * H)));
}

double synthesis_window(int j, int H, int N) {
  const double hann = 0.5 - 0.5 * std::cos(2 * pi * j / (2.0 * H));
  if (j >= H) return std::sqrt(hann) / std::sqrt(N);
  return hann / std::sqrt(0.5 - 0.5 * std::cos(2 * pi * (N - 2 * H + j) / (2.0 * (N - H)))) / std::sqrt(N);
}

std::string Blob::text() const {
  std::vector<std::string> lines = lines_;
  std::shuffle(lines.begin(), lines.end(), std::mt19937(7));
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

void Blob::say(const std::string& key, const std::string& value) {
  static constexpr std::array kForms{" = ", "=", "\t=\t", " , ="};
  lines_.push_back(key + kForms[random_() % kForms.size()] + value);
}

double Blob::draw(const std::string& key, double lowest, double highest) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", std::uniform_real_distribution<double>(lowest, highest)(random_));
  say(key, text);
  return std::stod(text);
}

int Blob::draw_count(const std::string& key, int lowest, int highest) {
  const int value = std::uniform_int_distribution<int>(lowest, highest)(random_);
  say(key, std::to_string(value));
  return value;
}

void Blob::u16(int value) {
  bytes_ += static_cast<char>(value & 0xff);
  bytes_ += static_cast<char>(value >> 8 & 0xff);
}

void Blob::i32(int value) {
  u16(value & 0xffff);
  u16(value >> 16 & 0xffff);
}

void Blob::f32(double value) {
  const float narrow = static_cast<float>(value);
  std::uint32_t bits = 0;
  std::memcpy(&bits, &narrow, sizeof bits);
  for (int shift = 0; shift < 32; shift += 8) bytes_ += static_cast<char>(bits >> shift & 0xff);
}

void Blob::untouched(int bytes) { bytes_.append(static_cast<std::size_t>(bytes), untouched_); }

void Blob::at(std::size_t offset, const std::string& what) const {
  if (bytes_.size() == offset) return;
  throw std::logic_error(what + " is at " + std::to_string(bytes_.size()) + ", not at " + std::to_string(offset));
}

void Blob::count(const std::string& key, int lowest, int highest) { u16(draw_count(key, lowest, highest)); }
void Blob::real(const std::string& key) { f32(draw(key, -9, 9)); }
void Blob::gain(const std::string& key) { f32(std::pow(10, draw(key, -60, 20) / 20)); }
void Blob::level(const std::string& key) { f32(std::pow(10, draw(key, -60, 40) / 20) * 1000.0); }
void Blob::coefficient(const std::string& key, double hop) { f32(1 - hop / 48000 / draw(key, 5, 500) * 1000); }
void Blob::frames(const std::string& key, double hop) {
  u16(static_cast<int>(std::floor(draw(key, 0, 5000) * 48000 * 0.001 / hop + 0.5)));
}

template <typename Element>
void Blob::array(const std::string& name, int entries, int places, int bytes_each, Element element_of) {
  for (int i = 0; i < entries; ++i) element_of(element(name, i));
  untouched((places - entries) * bytes_each);
}

void Blob::reals(const std::string& name, int entries, int places) {
  array(name, entries, places, 4, [this](const std::string& key) { real(key); });
}
void Blob::gains(const std::string& name, int entries, int places) {
  array(name, entries, places, 4, [this](const std::string& key) { gain(key); });
}
void Blob::levels(const std::string& name, int entries, int places) {
  array(name, entries, places, 4, [this](const std::string& key) { level(key); });
}
void Blob::coefficients(const std::string& name, int entries, int places, double hop) {
  array(name, entries, places, 4, [this, hop](const std::string& key) { coefficient(key, hop); });
}
void Blob::counts(const std::string& name, int entries, int places, int lowest, int highest) {
  array(name, entries, places, 2, [this, lowest, highest](const std::string& key) { count(key, lowest, highest); });
}

void Blob::bounds(const std::string& name, int groups, int places, int highest) {
  std::vector<int> edges(static_cast<std::size_t>(groups) + 1);
  for (int& edge : edges) edge = std::uniform_int_distribution<int>(0, highest)(random_);
  std::sort(edges.begin(), edges.end());
  for (int i = 0; i <= groups; ++i) {
    say(element(name, i), std::to_string(edges[static_cast<std::size_t>(i)]));
    u16(edges[static_cast<std::size_t>(i)]);
  }
  untouched((places - groups - 1) * 2);
}

void Blob::bands(const std::string& prefix, int nbin, int highest) {
  std::set<int> drawn;
  while (drawn.size() < static_cast<std::size_t>(nbin) + 1) {
    drawn.insert(std::uniform_int_distribution<int>(0, highest)(random_));
  }
  const std::vector<int> edges(drawn.begin(), drawn.end());
  say(prefix + "nbin", std::to_string(nbin));
  u16(nbin);
  for (int i = 0; i <= nbin; ++i) {
    say(element(prefix + "f[%d]", i), std::to_string(edges[static_cast<std::size_t>(i)]));
    u16(edges[static_cast<std::size_t>(i)]);
  }
  untouched((60 - nbin) * 2);
  for (std::size_t b = 0; b < static_cast<std::size_t>(nbin); ++b) f32(1.0 / (edges[b + 1] - edges[b]));
  untouched((60 - nbin) * 4);
}

void Blob::input_filter() {
  const auto stages = static_cast<std::size_t>(shape_.stages);
  u16(192);
  say("ain.stage_num", std::to_string(shape_.stages));
  u16(shape_.stages);
  std::vector<int> type(stages);
  std::vector<float> Q(stages);
  std::vector<float> f0(stages);
  std::vector<float> gain_dB(stages);
  for (std::size_t i = 0; i < stages; ++i) {
    u16(type[i] = draw_count("ain.type[" + std::to_string(i) + "]", 0, 8));
  }
  untouched((6 - shape_.stages) * 2);
  const auto read = [&](const std::string& name, std::vector<float>& values, double lowest, double highest) {
    for (std::size_t i = 0; i < stages; ++i) {
      values[i] = static_cast<float>(draw("ain." + name + "[" + std::to_string(i) + "]", lowest, highest));
      f32(values[i]);
    }
    untouched((6 - shape_.stages) * 4);
  };
  read("Q", Q, 0.1, 10);
  read("f0", f0, 20, 20000);
  read("gain", gain_dB, -20, 20);
  for (std::size_t i = 0; i < stages; ++i) {
    if (type[i] > 7) {
      untouched(20);
    } else {
      for (const double coefficient : biquad(type[i], Q[i], f0[i], gain_dB[i])) f32(coefficient);
    }
  }
  untouched((6 - shape_.stages) * 20);
}

void Blob::analysis(const std::string& prefix, int H, int N) {
  i32(H);
  i32(N);
  for (int i = 0; i < N; ++i) f32(analysis_window(i, H, N));
  untouched((1024 - N) * 4);
  i32(draw_count(prefix + "fnum_base_out", 0, 1));
  i32(draw_count(prefix + "fnum_out", 1, N / 2));
}

void Blob::synthesis(int H, int N) {
  u16(H);
  u16(N);
  untouched(4);
  for (int j = 1; j < 2 * H; ++j) f32(synthesis_window(j, H, N));
  untouched((384 - 2 * H) * 4);
}

void Blob::pwr(const std::string& prefix, int nbin, double hop) {
  u16(nbin);
  untouched(2);
  level(prefix + "Pin_init");
  coefficient(prefix + "PWCup", hop);
  coefficient(prefix + "PWCdn", hop);
}

void Blob::nl(const std::string& prefix, int nbin, double hop) {
  u16(nbin);
  frames(prefix + "init_wait", hop);
  frames(prefix + "update_cycle_noise", hop);
  frames(prefix + "update_cycle_voice", hop);
  level(prefix + "Nin_init");
}

void Blob::nl2() {
  u16(shape_.fine);
  frames("nl2_bf.init_wait", 192);
  frames("nl2_bf.update_cycle_noise", 192);
  frames("nl2_bf.update_cycle_voice", 192);
  count("nl2_bf.base_freq", 0, shape_.fine - 1);
  untouched(2);
  level("nl2_bf.Nin_init");
  real("nl2_bf.freq_dh_pwc");
  gain("nl2_bf.freq_dh_up_coef");
  gain("nl2_bf.freq_dh_dn_coef");
}

void Blob::vds() {
  count("vds.ID");
  u16(shape_.coarse);
  levels("vds.Nef_floor[%d]", shape_.coarse, 12);
  gain("vds.Nef_floor[12]");
  reals("vds.vd_w[%d]", shape_.coarse, 12);
  gain("vds.th_coef");
  frames("vds.upc_fb", 192);
  frames("vds.dnc_fb", 192);
}

std::array<float, 4> Blob::curve(const std::string& prefix) {
  std::array<float, 4> knots{};
  static constexpr std::array kNames{"thi1", "thi2", "tho1", "tho2"};
  for (std::size_t i = 0; i < 4; ++i) {
    knots[i] = static_cast<float>(
        draw(prefix + kNames[i], 0.1 + 0.4 * static_cast<double>(i % 2), 0.4 + 0.4 * static_cast<double>(i % 2)));
    f32(knots[i]);
  }
  slopes(knots);
  return knots;
}

void Blob::slopes(const std::array<float, 4>& knots) {
  const double thi1 = knots[0];
  const double thi2 = knots[1];
  const double tho1 = knots[2];
  const double tho2 = knots[3];
  f32(tho1 / thi1);
  f32((tho2 - tho1) / (thi2 - thi1));
  f32((1 - tho2) / (1 - thi2));
}

void Blob::noise_path(std::size_t shift) {
  at(968 + shift, "ana");
  analysis("ana.", 192, 1024);
  at(5080 + shift, "its synthesis");
  synthesis(192, 1024);
  at(6620 + shift, "pwr_snd");
  pwr("pwr_snd.", shape_.coarse, 192);
  at(6636 + shift, "pwr_snd_vd");
  pwr("pwr_snd_vd.", shape_.fine, 192);
  at(6652 + shift, "nl_snd");
  nl("nl_snd.", shape_.coarse, 192);
  at(6664 + shift, "vds");
  vds();
  at(6776 + shift, "pwr_bf");
  pwr("pwr_bf.", shape_.fine, 192);
  at(6792 + shift, "pwr_bf_nl");
  pwr("pwr_bf_nl.", shape_.fine, 192);
  at(6808 + shift, "nl_bf");
  nl("nl_bf.", shape_.fine, 192);
  at(6820 + shift, "nl2_bf");
  nl2();
  at(6848 + shift, "ns_nr.eq");
  gains("ns_nr.eq[%d]", shape_.fine, 60);
}

void Blob::noise_common() {
  const int bands = shape_.coarse;
  count("ns_nr.nw_det_band_min", 0, 3);
  count("ns_nr.nw_det_band_max", 4, 60);
  counts("ns_nr.nw_start_nbin[%d]", 3, 3, 0, shape_.fine - 1);
  counts("ns_nr.nw_end_nbin_param[%d]", 3, 3, 0, shape_.coarse);
  levels("ns_nr.nw_det_th[%d]", 3, 3);
  reals("ns_nr.freq_dh_pwc[%d]", 3, 3);
  for (const std::string row : {"0", "1", "2"}) gains("ns_nr.g_floor_nw[" + row + "][%d]", bands, 12);
  for (const std::string row : {"0", "1", "2"}) reals("ns_nr.nw_ns_sub_coef[" + row + "][%d]", bands, 12);
  gains("ns_nr.g_floor_ns[%d]", bands, 12);
  coefficients("ns_nr.pwc_g_up_voice[%d]", bands, 12, 192);
  coefficients("ns_nr.pwc_g_up_noise[%d]", bands, 12, 192);
  coefficients("ns_nr.pwc_g_dn_voice[%d]", bands, 12, 192);
  coefficients("ns_nr.pwc_g_dn_noise[%d]", bands, 12, 192);
  reals("ns_nr.sig_ns_sub_coef_voice[%d]", bands, 12);
  reals("ns_nr.sig_ns_sub_coef_noise[%d]", bands, 12);
  real("ns_nr.ns_mgn_voice");
  real("ns_nr.ns_mgn_noise");
  real("ns_nr.nw_mgn_voice");
  real("ns_nr.nw_mgn_noise");
  gains("ns_nr.mask_pwc_up[%d]", bands, 12);
  gains("ns_nr.mask_pwc_dn[%d]", bands, 12);
  gains("ns_nr.mask_coef[%d]", bands, 12);
  gain("ns_nr.g_enf_coef_noise");
  gain("ns_nr.g_enf_coef_voice");
  curve("ns_nr.gn_nl_");
  curve("ns_nr.avg_g_");
  real("ns_nr.sup_det_gn_th");
  count("ns_nr.sup_det_count_th");
  untouched(2);
  reals("ns_nr.sup_det_weight[%d]", bands, 12);
  real("ns_nr.sup_det_weight_th");
  real("ns_nr.vad_det_gn_th_on");
  reals("ns_nr.vad_det_weight_on[%d]", bands, 12);
  real("ns_nr.vad_det_weight_th_on");
  count("ns_nr.vad_det_count_th_on");
  untouched(2);
  real("ns_nr.vad_det_gn_th_off");
  reals("ns_nr.vad_det_weight_off[%d]", bands, 12);
  real("ns_nr.vad_det_weight_th_off");
  count("ns_nr.vad_det_count_th_off");
  count("ns_nr.comp_on");
  gain("ns_nr.comp_gain");
  coefficient("ns_nr.comp_pwc_up", 192);
  coefficient("ns_nr.comp_pwc_dn", 192);
  level("ns_nr.comp_clip_th");
  gain("ns_nr.comp_clip_gain");
  gain("ns_nr.vol");
}

void Blob::noise_reduction() {
  at(7088, "ns_nr");
  count("ns_nr.bypass");
  count("ns_nr.ID");
  u16(512);
  u16(shape_.fine);
  u16(shape_.coarse);
  count("ns_nr.dly_frame", 0, 16);
  noise_common();
}

void Blob::two_beam_noise_reduction() {
  const int bands = shape_.coarse;
  at(7100, "ns_nr");
  count("ns_nr.bypass");
  count("ns_nr.ID");
  u16(2);
  untouched(2);
  reals("ns_nr.noise_mix_w[%d]", 2, 2);
  untouched(8);
  gains("ns_nr.g_floor_nn[%d]", bands, 12);
  reals("ns_nr.noi_ns_sub_coef_voice[%d]", bands, 12);
  reals("ns_nr.noi_ns_sub_coef_noise[%d]", bands, 12);
  reals("ns_nr.noi_nn_sub_coef_voice[%d]", bands, 12);
  reals("ns_nr.noi_nn_sub_coef_noise[%d]", bands, 12);
  reals("ns_nr.sig_nn_sub_coef_voice[%d]", bands, 12);
  reals("ns_nr.sig_nn_sub_coef_noise[%d]", bands, 12);
  real("ns_nr.nn_mgn_voice");
  real("ns_nr.nn_mgn_noise");
  u16(512);
  u16(shape_.fine);
  u16(shape_.coarse);
  count("ns_nr.dly_frame", 0, 16);
  noise_common();
  const int middle = (shape_.fine - 1) / 2;
  count("ns_nr.nbin_avg_g_L", 0, middle);
  count("ns_nr.nbin_avg_g_H", middle + 1, shape_.fine);
  at(7100 + 1472, "the end of ns_nr");
}

void Blob::pulse_suppressor() {
  const int prm = shape_.prm;
  const int ui = shape_.ui;
  gains("pulse_sup.g_floor[%d]", ui, 5);
  coefficients("pulse_sup.pwc_g_up[%d]", ui, 5, 64);
  coefficients("pulse_sup.pwc_g_up_tail[%d]", ui, 5, 64);
  coefficients("pulse_sup.pwc_g_dn[%d]", ui, 5, 64);
  gains("pulse_sup.pwc_g_up_tail_th[%d]", ui, 5);
  gains("pulse_sup.min_diff_p[%d]", ui, 5);
  gains("pulse_sup.min_npm_det[%d]", 3, 3);
  gain("pulse_sup.min_diff_p2max_diff_p");
  gain("pulse_sup.min_npm_det2max_npm_det");
  real("pulse_sup.pwc_g_up2pwc_in_up");
  real("pulse_sup.pwc_g_dn2pwc_in_dn");
  count("pulse_sup.bypass");
  u16(64);
  u16(shape_.pulse);
  u16(prm);
  u16(ui);
  untouched(2);
  reals("pulse_sup.sig_np_sub_coef_voice[%d]", prm, 5);
  reals("pulse_sup.sig_np_sub_coef_noise[%d]", prm, 5);
  reals("pulse_sup.np_mgn_voice[%d]", prm, 5);
  reals("pulse_sup.np_mgn_noise[%d]", prm, 5);
  coefficients("pulse_sup.pwc_np_dn[%d]", prm, 5, 64);
  coefficients("pulse_sup.pwc_npm_dn[%d]", prm, 5, 64);
  gains("pulse_sup.mask_pwc_up[%d]", prm, 5);
  gains("pulse_sup.mask_pwc_dn[%d]", prm, 5);
  gains("pulse_sup.mask_coef[%d]", prm, 5);
  gain("pulse_sup.g_enf_coef_noise");
  gain("pulse_sup.g_enf_coef_voice");
  curve("pulse_sup.avg_g_");
  real("pulse_sup.sup_det_gn_th");
  count("pulse_sup.sup_det_fnum_th");
  count("pulse_sup.sup_det_count_th");
  count("pulse_sup.npm_num", 0, 3);
  counts("pulse_sup.npm_band_num[%d]", 3, 3, 0, 3);
  for (const std::string row : {"0", "1", "2"}) {
    counts("pulse_sup.npm_band[" + row + "][%d]", 3, 3, 0, shape_.pulse - 1);
  }
  counts("pulse_sup.det_keep_num[%d]", ui, 5);
  counts("pulse_sup.det_keep_npm_num[%d]", 3, 3);
  untouched(2);
}

void Blob::pulse_path(std::size_t shift) {
  at(8192 + shift, "the pulse hop");
  u16(64);
  u16(64);
  bounds("nbin_pulse_param_tbl[%d]", shape_.prm, 6, shape_.pulse);
  at(8208 + shift, "nbin_pulse_param_ui_tbl");
  bounds("nbin_pulse_param_ui_tbl[%d]", shape_.ui, 6, shape_.pulse);
  at(8220 + shift, "ana_pulse");
  analysis("ana_pulse.", 64, 128);
  at(12332 + shift, "its synthesis");
  synthesis(64, 128);
  at(13872 + shift, "syk_pulse");
  bands("syk_pulse.", shape_.pulse, 64);
  at(14236 + shift, "syk_pulse_prm");
  bands("syk_pulse_prm.", shape_.prm, 64);
  at(14600 + shift, "syk_pulse_prm_ui");
  bands("syk_pulse_prm_ui.", shape_.ui, 64);
  at(14964 + shift, "diff_power");
  i32(shape_.pulse);
  i32(draw_count("diff_power.delay_frame", 1, 100));
  i32(draw_count("diff_power.window_len", 1, 100));
  at(14976 + shift, "pulse_sup");
  pulse_suppressor();
  at(15404 + shift, "pulse_sup_delay");
  i32(128);
  i32(draw_count("pulse_sup_delay.delay", 0, 8192));
  at(15412 + shift, "pulse_sup_add_delay");
  i32(128);
  i32(draw_count("pulse_sup_add_delay.delay", 0, 8192));
  at(15420 + shift, "pulse_sup_add.gn_th");
  gain("pulse_sup_add.gn_th");
  at(15424 + shift, "pwr_pulse");
  pwr("pwr_pulse.", shape_.pulse, 64);
  at(15440 + shift, "nl_pulse");
  nl("nl_pulse.", shape_.pulse, 64);
  at(15452 + shift, "ngen_f_pulse");
  u16(64);
  u16(shape_.pulse);
  u16(shape_.prm);
  count("ngen_f_pulse.init_wait");
  level("ngen_f_pulse.lvl");
  gains("ngen_f_pulse.target_gn[%d]", shape_.prm, 12);
  gains("ngen_f_pulse.eq[%d]", shape_.prm, 12);
  levels("ngen_f_pulse.min_nl[%d]", shape_.pulse, 60);
}

void Blob::filters() {
  at(16180, "the filter spectra");
  for (std::size_t o = 0; o < 2; ++o) {
    for (std::size_t i = 0; i < 2; ++i) {
      Taps& taps = taps_[o][i];
      for (int n = 0; n < 384; ++n) taps.push_back(std::uniform_real_distribution<double>(-1, 1)(random_));
      const std::string numbers = std::to_string(o) + "][" + std::to_string(i);
      say("fd_fbf_ain_flt[" + numbers + "]", "flt" + std::to_string(o) + std::to_string(i) + ".bin");
      for (const int first : {192, 0}) {
        for (int k = 0; k <= 256; ++k) {
          std::complex<double> X = 0;
          for (int n = 0; n < 192; ++n) {
            X += static_cast<double>(static_cast<float>(taps[static_cast<std::size_t>(first + n)])) *
                 std::polar(1.0, -2 * pi * (k * n % 512) / 512);
          }
          f32(X.real());
          f32(X.imag());
        }
      }
    }
  }
}

Blob::Blob(Kind kind, const Shape& shape, unsigned seed, char untouched_value)
    : shape_(shape), untouched_(untouched_value), random_(seed) {
  const bool beams = kind == Kind::beam_forming;
  u16(192);
  u16(512);
  count("all_bypass");
  at(6, "nbin_param_tbl");
  bounds("nbin_param_tbl[%d]", shape.coarse, 13, shape.fine);
  at(32, "syk1");
  bands("syk1.", shape.coarse, 512);
  at(396, "syk2");
  bands("syk2.", shape.fine, 512);
  at(760, "ain");
  input_filter();
  if (beams) {
    for (const int number : {2, 2, 192, 257, 512, 2}) u16(number);
  }
  noise_path(beams ? 12 : 0);
  if (beams) {
    two_beam_noise_reduction();
  } else {
    noise_reduction();
  }
  pulse_path(beams ? 380 : 0);
  if (beams) filters();
  at(beams ? 32628 : 15800, "paramID");
  count("paramID");
  u16(beams ? 1 : 0);
  u16(beams ? 0 : 4);
  untouched(2);
}

}  // namespace sonivo::classic::reference
