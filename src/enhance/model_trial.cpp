#include "enhance/model_trial.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "e2easr_model/spkenc_model.h"
#include "feature_extractor/input.h"

namespace sonivo {
namespace {

/// Silence for a model that makes something of so many samples.
class TrialSilence : public Input<short> {
 public:
  explicit TrialSilence(std::int64_t most) : most_(most) {}

  int data(std::vector<short>& out, int require, bool) override {
    taken_ += require;
    if (taken_ > most_) throw std::runtime_error("it takes samples and gives none");
    out.resize(out.size() + static_cast<std::size_t>(require));
    return require;
  }
  bool end() override { return false; }
  std::int64_t taken() const { return taken_; }

 private:
  const std::int64_t most_;
  std::int64_t taken_ = 0;
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
constexpr std::int64_t kTrialSamplesPerMs = 16;
constexpr std::int64_t kTrialChunks = 20;  // that go in until two come out

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
  if (model.get<int>("overlap") > 0)
    throw std::runtime_error("its chunks overlap, so that it gives more than it takes");
  if (!(model.get<float>("frame-length") <= static_cast<float>(room.add_ms + room.chunk_ms.value_or(chunk)))) {
    throw std::runtime_error("its frames are longer than what waits for them");
  }
}

/// What gives more or less than it takes fills the FIFO behind it, or leaves it empty; so does a chunk of other frames
/// than those of the stream. The first one may be longer or shorter than those that follow.
void expect_whole_chunks(e2e::SEModel& model) {
  const std::int64_t chunk = std::int64_t{chunk_ms_of(model)} * kTrialSamplesPerMs;
  const auto frame = static_cast<std::int64_t>(model.get<float>("frame-length")) * kTrialSamplesPerMs;
  const auto silence = std::make_shared<TrialSilence>(frame + kTrialChunks * chunk);
  model.startEnhancement(silence);
  const auto next_chunk = [&] {
    std::uint32_t state = 0;
    return std::int64_t{model.getEnhancedResult(state).get<meridane::Matrix>("enhanced").size()};
  };
  next_chunk();
  const std::int64_t before = silence->taken();
  const std::int64_t given = next_chunk();
  const std::int64_t taken = silence->taken() - before;
  const std::int64_t half_frame = chunk / (std::int64_t{2} * kChunkFrames);
  if (std::abs(given - chunk) < half_frame && std::abs(taken - chunk) < half_frame) return;
  throw std::runtime_error("its preprocessor or its network changes the number of frames: of " + std::to_string(taken) +
                           " samples it makes " + std::to_string(given) + ", where chunks have " +
                           std::to_string(chunk));
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
  expect_whole_chunks(model);
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
