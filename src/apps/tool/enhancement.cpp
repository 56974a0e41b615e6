#include "apps/tool/enhancement.h"

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <random>
#include <utility>
#include <vector>

#include "apps/tool/failure.h"
#include "apps/tool/latency.h"
#include "enhance/device_rate.h"
#include "enhance/fifo_input.h"
#include "enhance/fifo_output.h"
#include "enhance/pcm16.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kModelRate = 16000;
constexpr std::uint32_t kChunkFrames = 5;
constexpr std::uint32_t kChunk = kChunkFrames * 480;  // device samples; 48 a millisecond count at both rates
constexpr std::uint32_t kExtra = 20 * 48;             // more of them that each FIFO has room for

constexpr const char* kGivesLess = "the model gives less than it takes";
constexpr const char* kGivesMore = "the model gives more than it takes";

/// As the enhancement thread stores samples: truncated, and what 16 bits don't hold wraps.
std::vector<short> stored(const meridane::Matrix& samples) {
  if (!samples.allFinite()) throw Failure("the model gives samples that are no finite numbers");
  std::vector<short> result(static_cast<std::size_t>(samples.size()));
  std::transform(samples.data(), samples.data() + samples.size(), result.begin(), wrap_to_pcm16);
  return result;
}

/// Between a microphone, a model and an application, who all have the same thread: time passes while the model waits.
class Path : public Input<short> {
 public:
  Path(const NextBlock& next, const TakeBlock& take) : next_(next), take_(take) {}

  bool end() override { return false; }
  bool is_done() const { return is_done_; }
  /// What the model has made.
  virtual void enhanced(std::span<const short> samples) = 0;

 protected:
  void next(std::span<float> block) { next_(block); }
  void take(std::span<const float> block) { is_done_ = is_done_ || !take_(block); }

 private:
  const NextBlock& next_;
  const TakeBlock& take_;
  bool is_done_ = false;
};

class DevicePath : public Path {
 public:
  DevicePath(std::uint32_t rate_hz, const NextBlock& next, const TakeBlock& take)
      : Path(next, take), block_(device_frame(static_cast<int>(rate_hz))) {
    const int rate = static_cast<int>(rate_hz);
    if (!in_.BuffInit(kExtra + kChunk, rate, kChunkFrames) || !out_.BuffInit(kExtra + kChunk, kChunk, rate)) {
      throw std::bad_alloc();
    }
    in_.Start();
  }

  int data(std::vector<short>& out, int require, bool trancate) override {
    const std::size_t wanted = static_cast<std::size_t>(require) * block_.size() / kModelFrame;
    while (in_.GetDataLength() < wanted) pass_10_ms();
    return in_.data(out, require, trancate);
  }

  void enhanced(std::span<const short> samples) override {
    const auto size = static_cast<std::uint32_t>(samples.size());
    if (out_.PushData(samples.data(), size) != size) throw Failure(kGivesMore);
  }

 private:
  void pass_10_ms() {
    const auto size = static_cast<std::uint32_t>(block_.size());
    next(block_);
    if (in_.PushData(block_.data(), size) != size) throw Failure("the model takes too much at a time");
    if (out_.PopData(block_.data(), size) != size) throw Failure(kGivesLess);
    take(block_);
  }

  FifoInput in_;
  FifoOutput out_;
  std::vector<float> block_;
};

class ModelPath : public Path {
  static constexpr std::int64_t kMostWaiting = 100;  // blocks, a second

 public:
  using Path::Path;

  int data(std::vector<short>& out, int require, bool) override {
    for (int i = 0; i < require; ++i) {
      if (at_ == block_.size()) {
        next(block_);
        at_ = 0;
        if (++waiting_ > kMostWaiting) throw Failure(kGivesLess);
      }
      out.push_back(static_cast<short>(std::clamp(block_[at_++] * 32768.0f, -32768.0f, 32767.0f)));
    }
    return require;
  }

  void enhanced(std::span<const short> samples) override {
    const auto frames = static_cast<std::int64_t>(samples.size() / kModelFrame);
    if (frames > waiting_) throw Failure(kGivesMore);
    waiting_ -= frames;
    enhanced_.resize(samples.size());
    std::transform(samples.begin(), samples.end(), enhanced_.begin(),
                   [](short x) { return static_cast<float>(x) * 0x1p-15f; });
    take(enhanced_);
  }

 private:
  std::array<float, kModelFrame> block_{};
  std::size_t at_ = kModelFrame;
  std::int64_t waiting_ = 0;  // blocks that were taken and not given yet
  std::vector<float> enhanced_;
};

std::shared_ptr<Path> make_path(std::uint32_t rate_hz, const NextBlock& next, const TakeBlock& take) {
  if (is_device_rate(static_cast<int>(rate_hz))) return std::make_shared<DevicePath>(rate_hz, next, take);
  return std::make_shared<ModelPath>(next, take);
}

void expect_samples(const e2e::SEModel& model) {
  if (model.get<std::string>("feature-extractor-type") != "none") {
    throw Failure("the model takes features, not samples; give one with feature-extractor-type none");
  }
  if (model.get<float>("sample-frequency") != kModelRate) {
    throw Failure("the model is not made for 16000 Hz; give one that is");
  }
  if (model.get<int>("overlap") > 0) {
    throw Failure("the model's chunks overlap, so that it gives more than it takes; give one with overlap 0");
  }
}

}  // namespace

void stream_through(e2e::SEModel& model, std::uint32_t rate_hz, const NextBlock& next, const TakeBlock& take) {
  expect_samples(model);
  model.set<bool>("offline", false);
  model.set<int>("chunk-size", static_cast<int>(kChunkFrames));
  const std::shared_ptr<Path> path = make_path(rate_hz, next, take);
  model.startEnhancement(path);
  while (!path->is_done()) {
    std::uint32_t state = 0;
    const e2e::E2EResult result = model.getEnhancedResult(state);
    const auto& samples = result.get<meridane::Matrix>("enhanced");
    if (samples.rows() != 1) throw Failure("the model does not answer samples with samples");
    path->enhanced(stored(samples));
  }
  model.stopEnhancement();
}

std::size_t measure_delay(e2e::SEModel& model, std::uint32_t rate_hz) {
  const float strength = model.get<float>("enhancement-strength");
  const std::size_t second = rate_hz;
  FloatAudio in{rate_hz, 1, {}}, out{rate_hz, 1, {}};
  // Straight lines between random points, one for each sample of the model, so that most of it passes the converters.
  const std::uint32_t line = rate_hz == kModelRate ? 1 : 3;
  std::minstd_rand random;
  std::uniform_real_distribution<float> point(-0.1f, 0.1f);
  float from = 0, to = 0;
  std::uint32_t at = 0;
  const auto next = [&](std::span<float> block) {
    for (float& x : block) {
      if (at++ % line == 0) from = std::exchange(to, point(random));
      x = from + (to - from) * static_cast<float>((at - 1) % line) / static_cast<float>(line);
    }
    in.samples.insert(in.samples.end(), block.begin(), block.end());
  };
  const auto take = [&](std::span<const float> block) {
    out.samples.insert(out.samples.end(), block.begin(), block.end());
    return out.samples.size() < 2 * second;
  };
  model.set<float>("enhancement-strength", 0);
  stream_through(model, rate_hz, next, take);
  model.set<float>("enhancement-strength", strength);
  in.samples.resize(second);
  const Latency latency = measure_latency(in, out, second / 2);
  if (latency.outcome != Latency::Outcome::measured) {
    throw Failure(
        "the model gives nothing of its input back within half a second, so OUT cannot be aligned; use --raw");
  }
  return latency.frames;
}

}  // namespace sonivo::tool
