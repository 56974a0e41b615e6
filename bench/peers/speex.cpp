#include <speex/speex_preprocess.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "peers/peers.h"

namespace sonivo::bench {

namespace {

struct Destroy {
  void operator()(SpeexPreprocessState* state) const { speex_preprocess_state_destroy(state); }
};
using State = std::unique_ptr<SpeexPreprocessState, Destroy>;

class Speex final : public Enhancer {
 public:
  Speex(std::size_t channels, int suppression_db) : states_(channels) {
    for (State& state : states_) {
      state.reset(speex_preprocess_state_init(kBlock, 48000));
      int on = 1;
      speex_preprocess_ctl(state.get(), SPEEX_PREPROCESS_SET_DENOISE, &on);
      speex_preprocess_ctl(state.get(), SPEEX_PREPROCESS_SET_NOISE_SUPPRESS, &suppression_db);
    }
  }

  void process(float* block, bool) override {
    const std::size_t channels = states_.size();
    std::array<spx_int16_t, kBlock> samples;
    for (std::size_t c = 0; c < channels; ++c) {
      for (std::size_t i = 0; i < kBlock; ++i) {
        const float scaled = std::clamp(block[i * channels + c] * 32768.0f, -32768.0f, 32767.0f);
        samples[i] = static_cast<spx_int16_t>(scaled + std::copysign(0.5f, scaled));
      }
      speex_preprocess_run(states_[c].get(), samples.data());
      for (std::size_t i = 0; i < kBlock; ++i) block[i * channels + c] = static_cast<float>(samples[i]) / 32768.0f;
    }
  }

 private:
  std::vector<State> states_;
};

}  // namespace

std::unique_ptr<Enhancer> speex_noise_suppression(std::size_t channels, int suppression_db) {
  return std::make_unique<Speex>(channels, suppression_db);
}

}  // namespace sonivo::bench
