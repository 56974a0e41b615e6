#include <webrtc/common.h>
#include <webrtc/modules/audio_processing/include/audio_processing.h>

#include <stdexcept>
#include <vector>

#include "peers/peers.h"

namespace sonivo::bench {

namespace {

std::unique_ptr<webrtc::AudioProcessing> create(WebRtcParts parts, double spacing) {
  webrtc::Config config;
  config.Set(new webrtc::ExperimentalNs(parts.transient_suppressor));
  if (parts.beamformer) {
    const auto half = static_cast<float>(spacing / 2);
    config.Set(new webrtc::Beamforming(true, {webrtc::Point(-half, 0, 0), webrtc::Point(half, 0, 0)}));
  }
  std::unique_ptr<webrtc::AudioProcessing> module(webrtc::AudioProcessing::Create(config));
  if (!module) throw std::runtime_error("webrtc does not start");
  module->noise_suppression()->set_level(webrtc::NoiseSuppression::kHigh);
  module->noise_suppression()->Enable(parts.noise_suppression);
  return module;
}

class WebRtc final : public Enhancer {
 public:
  WebRtc(std::size_t channels, WebRtcParts parts, double spacing)
      : module_(create(parts, spacing)),
        in_(48000, static_cast<int>(channels)),
        out_(48000, parts.beamformer ? 1 : static_cast<int>(channels)),
        samples_(channels * kBlock),
        channels_(channels) {
    for (std::size_t c = 0; c < channels; ++c) pointers_.push_back(samples_.data() + c * kBlock);
  }

  void process(float* block, bool key_pressed) override {
    for (std::size_t c = 0; c < channels_; ++c) {
      for (std::size_t i = 0; i < kBlock; ++i) pointers_[c][i] = block[i * channels_ + c];
    }
    module_->set_stream_key_pressed(key_pressed);
    if (module_->ProcessStream(pointers_.data(), in_, out_, pointers_.data()) != webrtc::AudioProcessing::kNoError) {
      throw std::runtime_error("webrtc does not process");
    }
    const bool one_result = out_.num_channels() == 1;
    for (std::size_t c = 0; c < channels_; ++c) {
      const float* const from = pointers_[one_result ? 0 : c];
      for (std::size_t i = 0; i < kBlock; ++i) block[i * channels_ + c] = from[i];
    }
  }

 private:
  std::unique_ptr<webrtc::AudioProcessing> module_;
  webrtc::StreamConfig in_;
  webrtc::StreamConfig out_;
  std::vector<float> samples_;
  std::vector<float*> pointers_;
  std::size_t channels_;
};

}  // namespace

std::unique_ptr<Enhancer> webrtc(std::size_t channels, WebRtcParts parts, double spacing) {
  return std::make_unique<WebRtc>(channels, parts, spacing);
}

}  // namespace sonivo::bench
