#include "classic/beam_forming_channel.h"

#include <cmath>
#include <utility>

#include "classic/fixed_beamformer.h"
#include "classic/input_filter.h"
#include "classic/noise_reduction.h"
#include "classic/sane_frame.h"

namespace sonivo::classic {
namespace {

bool is_silent(const std::array<float, kHop>& x0, const std::array<float, kHop>& x1) {
  float sum = 0.0f;
  for (std::size_t i = 0; i < kHop; ++i) sum += std::abs(x0[i]) + std::abs(x1[i]);
  return sum == 0.0f;
}

}  // namespace

struct BeamFormingChannel::Stages {
  explicit Stages(const Param& param)
      : filter0(param.head.ain), filter1(param.head.ain), beams(param), key(param.pulse), noise(param) {}

  void reset() {
    filter0.reset();
    filter1.reset();
    beams.reset();
    key.reset();
    noise.reset();
  }

  InputFilter filter0;
  InputFilter filter1;
  FixedBeamformer beams;
  KeyReduction<kBeams> key;
  TwoBeamNoiseReduction noise;
};

BeamFormingChannel::BeamFormingChannel(std::shared_ptr<const Param> param) : own_(std::move(param)) { reset(); }
BeamFormingChannel::~BeamFormingChannel() = default;

void BeamFormingChannel::reset(std::shared_ptr<const Param> param) {
  stages_ = std::make_unique<Stages>(*param);
  param_ = std::move(param);
}

void BeamFormingChannel::copy_states(const BeamFormingChannel& other) {
  stages_ = std::make_unique<Stages>(*other.stages_);
  param_ = other.param_;
}

const DetectionStatistics& BeamFormingChannel::statistics() const { return stages_->key.statistics(); }

std::size_t BeamFormingChannel::latency() const {
  const std::size_t key = keyBypass ? 0 : KeyReduction<kBeams>::latency(param_->pulse);
  return noiseBypass ? key : key + noise_latency(param_->ns_nr.dly_frame);
}

void BeamFormingChannel::process(const Frames& in, std::size_t channel, Frames& out) {
  const auto& x0 = in[0];
  const auto& x1 = in[1];
  auto& y = out[channel];
  if (!is_sane(x0) || !is_sane(x1)) {
    y.fill(0.0f);
    return;
  }
  if (is_silent(x0, x1)) {
    y = x0;
    return;
  }

  auto& [filter0, filter1, beams, key, noise] = *stages_;
  key.clear_statistics();
  auto a0 = x0;
  auto a1 = x1;
  if (!keyBypass || !noiseBypass) {
    filter0.process(a0);
    filter1.process(a1);
  }
  std::array<float, kHop> beam0 = x0;
  std::array<float, kHop> beam1{};
  if (!beamBypass) beams.process(a0, a1, beam0, beam1);

  auto b0 = beam0;
  auto b1 = beam1;
  if (!keyBypass) key.process({beam0, beam1}, noise.voice(), {b0, b1});
  if (noiseBypass) {
    y = b0;
  } else {
    noise.process({b0, b1}, {beam0, beam1}, y);
  }
  if (is_sane(a0) && is_sane(a1) && is_sane(beam0) && is_sane(beam1) && is_sane(b0) && is_sane(b1) && is_sane(y))
    return;
  stages_->reset();
  y.fill(0.0f);
}

}  // namespace sonivo::classic
