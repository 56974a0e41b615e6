// Any bytes behind a valid version word are a parameter blob: a chain refuses it, or runs on it whatever the samples
// are. Input: a byte that chooses the chain, its channels and switches, the blob, then the samples.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <span>
#include <vector>

#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "classic/param_blobs.h"
#include "classic/param_check.h"
#include "classic/result.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

using namespace sonivo;

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint8_t kBeamForming = 0x01;
constexpr std::uint8_t kTwoBits = 0x03;  // channels less one, from bit 1 on
constexpr std::uint8_t kKeyOff = 0x08;
constexpr std::uint8_t kNoiseOff = 0x10;
constexpr std::uint8_t kBeamOff = 0x20;

void demand(bool holds) {
  if (!holds) std::abort();
}

std::size_t blob_bytes(std::uint8_t choice) {
  return (choice & kBeamForming) != 0 ? sizeof(classic::BeamFormingKeyCancelParam) : sizeof(classic::KeyCancelParam);
}

/// Takes as many values as there are, bit for bit; the rest stays as it is.
template <class Value>
void take(Bytes& bytes, std::span<Value> values) {
  const std::size_t taken = std::min(bytes.size() / sizeof(Value), values.size()) * sizeof(Value);
  if (taken > 0) std::memcpy(values.data(), bytes.data(), taken);
  bytes = bytes.subspan(taken);
}

/// A block of a tone, so that everything that listens is at work, and over it what is left of the input.
template <class Chain>
void execute(Chain& chain, std::uint16_t channels, std::uint16_t frames, Bytes& bytes) {
  std::vector<float> block(std::size_t{channels} * frames);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = (i / 64 % 2 == 0 ? 0.25f : -0.125f);
  take(bytes, std::span(block));
  demand(chain.Execute(block.data()) == 0);
}

void switch_beams(CKeyCancel&, std::uint8_t) {}
void switch_beams(CBeamFormingKeyCancel& chain, std::uint8_t choice) {
  demand(chain.SetBeamFormingActive((choice & kBeamOff) == 0 ? 1 : 0) == 0);
}

template <class Chain, class Param>
void run(std::uint8_t choice, Bytes bytes, std::uint16_t version_major) {
  const auto channels = static_cast<std::uint16_t>((choice >> 1 & kTwoBits) + 1);
  auto param = std::make_unique<Param>();
  const Bytes blob = bytes.first(std::min(bytes.size(), sizeof(Param)));
  std::memcpy(param.get(), blob.data(), blob.size());
  param->version_major = version_major;
  bytes = bytes.subspan(blob.size());

  Chain chain;
  const int opened = chain.Open(param.get(), 48000.0f, channels, 480);
  demand(opened == (classic::usable(*param) ? 0 : ERROR_BEAMFORMING_KEY_CANCEL_PARAM_VERSION));
  if (opened != 0) return;
  demand(chain.SetKeyReductionActive((choice & kKeyOff) == 0 ? 1 : 0) == 0);
  demand(chain.SetNoiseReductionActive((choice & kNoiseOff) == 0 ? 1 : 0) == 0);
  switch_beams(chain, choice);

  execute(chain, channels, 480, bytes);
  for (const std::uint16_t frames : {std::uint16_t{1}, std::uint16_t{191}, std::uint16_t{441}}) {
    demand(chain.SetDataLength(frames) == 0);
    execute(chain, channels, frames, bytes);
  }
  demand(chain.SetParam(param.get()) == 0);
  param.reset();  // the chain has a copy
  execute(chain, channels, 441, bytes);
}

/// Windows and beam filters are most of a blob, and all that a chain does with them is to multiply.
template <class Param>
bool only_multiplies(std::size_t at) {
  using classic::AnaBlock, classic::SynBlock, classic::NoisePath, classic::PulsePath;
  const auto within = [at](std::size_t first, std::size_t bytes) { return at >= first && at < first + bytes; };
  const auto window = [within](std::size_t ana, std::size_t syn) {
    return within(ana + offsetof(AnaBlock, window), sizeof(AnaBlock::window)) ||
           within(syn + offsetof(SynBlock, window), sizeof(SynBlock::window));
  };
  constexpr std::size_t kNoise = offsetof(Param, noise), kPulse = offsetof(Param, pulse);
  if constexpr (requires(Param param) { param.filter; }) {
    if (within(offsetof(Param, filter), sizeof(Param::filter))) return true;
  }
  return window(kNoise + offsetof(NoisePath, ana), kNoise + offsetof(NoisePath, syn)) ||
         window(kPulse + offsetof(PulsePath, ana_pulse), kPulse + offsetof(PulsePath, syn_pulse));
}

bool only_multiplies(std::uint8_t choice, std::size_t at) {
  return (choice & kBeamForming) != 0 ? only_multiplies<classic::BeamFormingKeyCancelParam>(at)
                                      : only_multiplies<classic::KeyCancelParam>(at);
}

}  // namespace

/// Mostly changes one field where it stands: everything behind it would be another field if the length changed.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
  constexpr float kInfinite = std::numeric_limits<float>::infinity();
  constexpr std::array<float, 8> kNumbers{0.0f, 1.0f, -1.0f, 1e38f, -1e38f, 1e-40f, kInfinite, -kInfinite};
  constexpr std::array<std::uint16_t, 10> kCounts{0, 1, 2, 12, 13, 60, 61, 512, 0x7FFF, 0xFFFF};
  std::minstd_rand random(seed);
  const auto pick = [&random](std::size_t count) { return (random() >> 4) % count; };

  const std::size_t blob_end = 1 + blob_bytes(size > 0 ? data[0] : 0);
  const bool in_samples = size >= blob_end + sizeof(float) && pick(4) == 0;
  const std::size_t first = in_samples ? blob_end : 1;
  const std::size_t fields = ((in_samples ? size : std::min(size, blob_end)) - first) / sizeof(float);
  if (fields == 0 || pick(16) == 0) return LLVMFuzzerMutate(data, size, max_size);
  std::size_t place = pick(fields) * sizeof(float);
  for (int again = 0; again < 8 && !in_samples && only_multiplies(data[0], place); ++again) {
    place = pick(fields) * sizeof(float);
  }
  std::uint8_t* const field = data + first + place;
  switch (pick(4)) {
    case 0:
      data[0] ^= static_cast<std::uint8_t>(2u << pick(5));
      break;
    case 1:
      std::memcpy(field, &kNumbers[pick(kNumbers.size())], sizeof(float));
      break;
    case 2:
      std::memcpy(field + 2 * pick(2), &kCounts[pick(kCounts.size())], sizeof(std::uint16_t));
      break;
    default:
      LLVMFuzzerMutate(field, sizeof(float), sizeof(float));
  }
  return size;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Bytes bytes = Bytes(data, size).subspan(1);
  if ((data[0] & kBeamForming) != 0) {
    run<CBeamFormingKeyCancel, classic::BeamFormingKeyCancelParam>(data[0], bytes, 1);
  } else {
    run<CKeyCancel, classic::KeyCancelParam>(data[0], bytes, 0);
  }
  return 0;
}
