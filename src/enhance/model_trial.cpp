#include "enhance/model_trial.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "e2easr_model/spkenc_model.h"
#include "feature_extractor/input.h"

namespace sonivo {
namespace {

/// Silence without end.
class TrialSilence : public Input<short> {
 public:
  int data(std::vector<short>& out, int require, bool) override {
    out.resize(out.size() + static_cast<std::size_t>(require));
    return require;
  }
  bool end() override { return false; }
};

/// So much noise.
class TrialNoise : public Input<short> {
 public:
  TrialNoise(std::size_t samples, std::size_t at_a_time) : rest_(samples), at_a_time_(at_a_time) {}

  int data(std::vector<short>& out, int require, bool) override {
    const auto wanted = static_cast<std::size_t>(require);
    if (wanted > at_a_time_) {
      throw std::runtime_error("the encoder wants " + std::to_string(require) + " samples at once; it gets at most " +
                               std::to_string(at_a_time_));
    }
    const std::size_t given = std::min(wanted, rest_);
    for (std::size_t i = 0; i < given; ++i) {
      state_ = state_ * 1664525u + 1013904223u;
      out.push_back(static_cast<short>(static_cast<std::int32_t>(state_) >> 20));
    }
    rest_ -= given;
    return static_cast<int>(given);
  }
  bool end() override { return rest_ == 0; }

 private:
  std::size_t rest_;
  std::size_t at_a_time_;
  std::uint32_t state_ = 1;
};

constexpr float kLongestShiftMs = 1000.0f;

void expect_stream_of_samples(const e2e::SEModel& model, const FifoRoom& room) {
  if (model.get<std::string>("feature-extractor-type") != "none") {
    throw std::runtime_error("it takes features, not samples");
  }
  if (model.get<float>("sample-frequency") != 16000.0f) throw std::runtime_error("it is not made for 16000 Hz");
  const float shift = model.get<float>("frame-shift");
  if (!(shift >= 1.0f && shift <= kLongestShiftMs)) throw std::runtime_error("its frame-shift is not 1 to 1000 ms");
  const std::uint32_t chunk = chunk_ms_of(model);
  if (chunk % 10 != 0) throw std::runtime_error("its chunks of five frames are no whole 10 ms");
  if (chunk > room.chunk_ms.value_or(chunk)) throw std::runtime_error("its chunks are longer than those in use");
  if (!(model.get<float>("frame-length") <= static_cast<float>(room.add_ms + room.chunk_ms.value_or(chunk)))) {
    throw std::runtime_error("its frames are longer than what waits for them");
  }
}

}  // namespace

std::uint32_t chunk_ms_of(const e2e::SEModel& model) {
  const float shift = std::clamp(model.get<float>("frame-shift"), 0.0f, kLongestShiftMs);
  return static_cast<std::uint32_t>(shift) * kChunkFrames;
}

void try_enhancement_model(const std::string& file, const FifoRoom& room) {
  e2e::SEModel model;
  model.load(file, false);
  model.set<bool>("offline", false);
  model.set<int>("chunk-size", kChunkFrames);
  expect_stream_of_samples(model, room);
  model.startEnhancement(std::make_shared<TrialSilence>());
  std::uint32_t state = 0;
  model.getEnhancedResult(state).get<meridane::Matrix>("enhanced");
}

void try_enrolment_models(const std::string& base_model_file, const std::string& enc_model_file, std::size_t samples,
                          std::size_t at_a_time) {
  constexpr std::size_t kMostSamples = 160000;
  e2e::SpkEncModel encoder;
  encoder.load(enc_model_file, false);
  const e2e::E2EResult result =
      encoder.encode(std::make_shared<TrialNoise>(std::min(samples, kMostSamples), at_a_time));
  e2e::SEModel base;
  base.load(base_model_file, false);
  base.set_spk_embedding(result.get<meridane::Matrix>("embed"));
}

}  // namespace sonivo
