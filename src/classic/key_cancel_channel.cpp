#include "classic/key_cancel_channel.h"

#include <utility>

#include "classic/input_filter.h"
#include "classic/noise_reduction.h"
#include "classic/sane_frame.h"

namespace sonivo::classic {

struct KeyCancelChannel::Stages {
  explicit Stages(const Param& param) : filter(param.head.ain), key(param.pulse), noise(param) {}

  void reset() {
    filter.reset();
    key.reset();
    noise.reset();
  }

  InputFilter filter;
  KeyReduction<1> key;
  NoiseReduction noise;
};

KeyCancelChannel::KeyCancelChannel(std::shared_ptr<const Param> param) : own_(std::move(param)) { reset(); }
KeyCancelChannel::~KeyCancelChannel() = default;

void KeyCancelChannel::reset(std::shared_ptr<const Param> param) {
  stages_ = std::make_unique<Stages>(*param);
  param_ = std::move(param);
}

const DetectionStatistics& KeyCancelChannel::statistics() const { return stages_->key.statistics(); }

std::size_t KeyCancelChannel::latency() const {
  const std::size_t key = keyBypass ? 0 : KeyReduction<1>::latency(param_->pulse);
  return noiseBypass ? key : key + noise_latency(param_->ns_nr.dly_frame);
}

void KeyCancelChannel::process(const Frames& in, std::size_t channel, Frames& out) {
  const auto& x = in[channel];
  auto& y = out[channel];
  if (!is_sane(x)) {
    y.fill(0.0f);
    return;
  }
  y = x;
  if (x.back() == 0.0f) return;

  auto& [filter, key, noise] = *stages_;
  key.clear_statistics();
  if (keyBypass && noiseBypass) return;

  auto a = x;
  filter.process(a);
  auto b = a;
  if (!keyBypass) key.process({a}, noise.voice(), {b});
  if (noiseBypass) {
    y = b;
  } else {
    noise.process(b, a, y);
  }
  if (is_sane(a) && is_sane(b) && is_sane(y)) return;
  stages_->reset();
  y.fill(0.0f);
}

}  // namespace sonivo::classic
